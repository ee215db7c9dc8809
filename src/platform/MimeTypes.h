// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch::mimeTypes {

/// The preferred file name extension of a MIME type, without the dot ("application/pdf" gives "pdf"); absent when none
/// is known. Parameters after ";" are passed over. The result holds only letters and digits.
std::optional<std::string> preferredExtension(std::string_view mimeType);
/// The MIME type of an extension (without the dot); absent when none is known.
std::optional<std::string> forExtension(std::string_view extension);
/// True when the two name the same type, aliases and parameters aside.
bool sameType(std::string_view first, std::string_view second);
/// True when the bytes make an image the program can draw (PNG, JPEG, WebP, GIF by their first bytes).
bool looksLikeImage(std::string_view bytes);
/// True when a PNG or WebP image lacks its end. Other kinds don't tell.
bool endsTooEarly(std::string_view image);

} // namespace ledgerfinch::mimeTypes

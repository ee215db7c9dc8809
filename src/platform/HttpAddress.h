// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

class QUrl;

namespace ledgerfinch {

/// Empty for everything but an absolute http or https address with a host.
QUrl parseHttpUrl(std::string_view text);
/// See the function of the same name for texts.
bool isSameServer(const QUrl& first, const QUrl& second);
/// A method or header name (RFC 9110 section 5.6.2).
bool isHttpToken(std::string_view text);
/// False for a header that could break or forge the head of a request.
bool isSendableHeader(std::string_view name, std::string_view value);

} // namespace ledgerfinch

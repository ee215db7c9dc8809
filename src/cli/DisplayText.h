// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Foreign text on a terminal: harmless, and measured in columns.
namespace ledgerfinch::cli {

enum class LineBreaks { Escape, Keep };

/// The text with nothing in it that a terminal would obey: control characters, escape sequences, line breaks and
/// characters that turn the direction of what follows are written out ("\x1b", "\n", "\u{202e}"). Bytes that are no
/// UTF-8 become U+FFFD. With LineBreaks::Keep line feeds and tabs stay, and a carriage return before a line feed is
/// dropped.
std::string printable(std::string_view text, LineBreaks lineBreaks = LineBreaks::Escape);

/// A word that somebody gave, for a sentence about it: printable, cut when it is long, "" when it is empty.
std::string named(std::string_view word);

/// Columns that printable text takes: 2 for East Asian wide characters and most emoji, 0 for combining marks and
/// joiners.
std::size_t displayWidth(std::string_view text);

/// At most this many columns; what is cut ends in "…". A mark stays with the character that it belongs to.
std::string truncated(std::string_view text, std::size_t width);

enum class Alignment { Left, Right };
/// Filled with blanks to this many columns.
std::string padded(std::string_view text, std::size_t width, Alignment alignment = Alignment::Left);

} // namespace ledgerfinch::cli

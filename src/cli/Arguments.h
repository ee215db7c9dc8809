// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::cli {

/// An option as data: what the parser, the help and the manual page know of it.
struct OptionDescription {
    std::string_view name;     ///< without the dashes
    std::string_view argument; ///< name of its value ("FILE"); empty for a switch
    std::string_view help;     ///< one sentence
    char letter = 0;           ///< "-n", or none
};

/// A word of the command line that is no option.
struct PositionalDescription {
    std::string_view name; ///< "URL"
    std::string_view help;
    enum class Occurs { Once, Optional, Any } occurs = Occurs::Once;
};

/// What one command was given.
class Arguments {
public:
    [[nodiscard]] bool has(std::string_view option) const { return m_options.contains(option); }
    /// The value of an option; of one given twice, the last.
    [[nodiscard]] std::optional<std::string> value(std::string_view option) const;
    [[nodiscard]] const std::vector<std::string>& positionals() const { return m_positionals; }
    /// Empty when there are fewer.
    [[nodiscard]] std::string positional(std::size_t index) const;

    void setOption(std::string_view option, std::string value) { m_options[std::string(option)] = std::move(value); }
    void addPositional(std::string word) { m_positionals.push_back(std::move(word)); }

private:
    std::map<std::string, std::string, std::less<>> m_options;
    std::vector<std::string> m_positionals;
};

/// Sorts words into options and positionals, as GNU programs do: "--name value", "--name=value", "-nVALUE", in any
/// order,
/// "--" ends the options. The error is a sentence without any value of the command line in it, since a value may be a
/// secret in the wrong place.
Result<Arguments> parseArguments(std::span<const std::string> words, std::span<const OptionDescription> options);

/// Checks the number of positionals.
Result<void> checkPositionals(const Arguments& arguments, std::span<const PositionalDescription> expected,
                              std::string_view command);

/// The candidate that the word was probably meant to be; absent when none is near.
std::optional<std::string_view> nearest(std::string_view word, std::span<const std::string_view> candidates);

/// A whole decimal number; absent for anything else.
std::optional<std::int64_t> wholeNumber(std::string_view text);

} // namespace ledgerfinch::cli

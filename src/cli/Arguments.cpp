// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Arguments.h"

#include "cli/DisplayText.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace ledgerfinch::cli {
namespace {

Error unknownOption(const std::string& shown, std::span<const OptionDescription> options) {
    std::vector<std::string_view> names;
    for (const auto& option : options)
        names.push_back(option.name);
    std::string message = "Unknown option " + named(shown) + ".";
    if (shown.starts_with("--"))
        if (const auto meant = nearest(std::string_view(shown).substr(2), names))
            message += " Did you mean --" + std::string(*meant) + "?";
    return {message};
}

/// Walks over the words; each step takes one option with its value, or one positional.
class Parser {
public:
    Parser(std::span<const std::string> words, std::span<const OptionDescription> options)
        : m_words(words), m_options(options) {}

    Result<Arguments> run() {
        bool optionsEnded = false;
        for (; m_next < m_words.size(); ++m_next) {
            const std::string& word = m_words[m_next];
            Result<void> step;
            if (optionsEnded || word.size() < 2 || word[0] != '-')
                m_arguments.addPositional(word);
            else if (word == "--")
                optionsEnded = true;
            else if (word[1] == '-')
                step = takeLong(word);
            else
                step = takeShort(word);
            if (!step) return step.error();
        }
        return std::move(m_arguments);
    }

private:
    Result<void> takeLong(const std::string& word) {
        const auto equals = word.find('=');
        const auto name = word.substr(0, equals);
        const auto* option = find([&](const OptionDescription& candidate) { return name.substr(2) == candidate.name; });
        if (!option) return unknownOption(name, m_options);
        std::optional<std::string> value;
        if (equals != std::string::npos) value = word.substr(equals + 1);
        return take(*option, std::move(value));
    }

    Result<void> takeShort(const std::string& word) {
        const auto* option = find([&](const OptionDescription& candidate) { return candidate.letter == word[1]; });
        if (!option) return unknownOption(word.substr(0, 2), m_options);
        if (option->argument.empty() && word.size() > 2)
            return Error{"One-letter options are given one by one, each with its dash."};
        std::optional<std::string> value;
        if (word.size() > 2) value = word.substr(2);
        return take(*option, std::move(value));
    }

    Result<void> take(const OptionDescription& option, std::optional<std::string> value) {
        const std::string name = "--" + std::string(option.name);
        if (option.argument.empty()) {
            if (value) return Error{name + " takes no value."};
            m_arguments.setOption(option.name, {});
            return {};
        }
        if (!value) {
            if (m_next + 1 >= m_words.size())
                return Error{name + " needs a value: " + name + " " + std::string(option.argument) + "."};
            value = m_words[++m_next];
        }
        m_arguments.setOption(option.name, std::move(*value));
        return {};
    }

    template <class Condition>
    const OptionDescription* find(Condition condition) const {
        const auto found = std::find_if(m_options.begin(), m_options.end(), condition);
        return found == m_options.end() ? nullptr : &*found;
    }

    std::span<const std::string> m_words;
    std::span<const OptionDescription> m_options;
    std::size_t m_next = 0;
    Arguments m_arguments;
};

/// Insertions, deletions, replacements and swaps of neighbours between two words.
std::size_t editDistance(std::string_view first, std::string_view second) {
    std::vector<std::size_t> beforeLast(second.size() + 1);
    std::vector<std::size_t> last(second.size() + 1);
    std::vector<std::size_t> row(second.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= first.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= second.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (first[i - 1] == second[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && first[i - 1] == second[j - 2] && first[i - 2] == second[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[second.size()];
}

} // namespace

std::optional<std::string> Arguments::value(std::string_view option) const {
    const auto found = m_options.find(option);
    if (found == m_options.end()) return std::nullopt;
    return found->second;
}

std::string Arguments::positional(std::size_t index) const {
    return index < m_positionals.size() ? m_positionals[index] : std::string();
}

Result<Arguments> parseArguments(std::span<const std::string> words, std::span<const OptionDescription> options) {
    return Parser(words, options).run();
}

Result<void> checkPositionals(const Arguments& arguments, std::span<const PositionalDescription> expected,
                              std::string_view command) {
    using Occurs = PositionalDescription::Occurs;
    const std::size_t given = arguments.positionals().size();
    std::size_t position = 0;
    for (const auto& description : expected) {
        if (description.occurs == Occurs::Any) return {};
        if (description.occurs == Occurs::Once && position >= given)
            return Error{std::string(command) + " needs " + std::string(description.name) + "."};
        ++position;
    }
    if (given > position) {
        if (expected.empty()) return Error{std::string(command) + " takes options only, no further word."};
        return Error{std::string(command) + " takes no more than " + std::to_string(position) +
                     (position == 1 ? " word" : " words") + " besides its options."};
    }
    return {};
}

std::optional<std::string_view> nearest(std::string_view word, std::span<const std::string_view> candidates) {
    std::optional<std::string_view> best;
    std::size_t bestDistance = std::max<std::size_t>(1, word.size() / 3) + 1;
    if (word.size() > 40) return std::nullopt;
    for (const auto candidate : candidates) {
        const std::size_t distance =
            word.size() >= 3 && candidate.starts_with(word) ? 1 : editDistance(word, candidate);
        if (distance < bestDistance) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return number;
}

} // namespace ledgerfinch::cli

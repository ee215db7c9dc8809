// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/LoginInput.h"

#include "cli/DisplayText.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <istream>
#include <iterator>
#include <ostream>

#include <sys/stat.h>

namespace ledgerfinch::cli {
namespace {

constexpr std::size_t kLongestSecret = 4096;
constexpr std::size_t kLongestHeaderFile = 64 * 1024;

constexpr std::array<OptionDescription, 5> kOptions{{
    {"user", "NAME", "Log in with this user name; the password is asked for without echo.", 'u'},
    {"password-stdin", "", "Read the password from the first line of standard input."},
    {"token", "", "Log in with a token, which is asked for without echo."},
    {"token-stdin", "", "Read the token from the first line of standard input."},
    {"header-file", "FILE",
     "Send the \"Name: value\" lines of FILE with every request to this server, as some reverse proxies want it. "
     "Without this option those of the last login stay."},
}};

std::string_view authority(std::string_view url) {
    if (const auto scheme = url.find("://"); scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
    return url.substr(0, url.find_first_of("/?#"));
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char expected, char actual) {
               return expected == static_cast<char>(std::tolower(static_cast<unsigned char>(actual)));
           });
}

std::string firstLine(std::istream& in) {
    std::string line;
    char character = 0;
    while (line.size() <= kLongestSecret && in.get(character) && character != '\n')
        line.push_back(character);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t\r") - first + 1));
}

/// RFC 9110 section 5.6.2.
bool isHeaderName(std::string_view name) {
    constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    return !name.empty() && std::all_of(name.begin(), name.end(), [&](char character) {
        return std::isalnum(static_cast<unsigned char>(character)) || kMarks.find(character) != std::string_view::npos;
    });
}

/// One reading of the input; each step says what is wrong and gives false.
class Reader {
public:
    Reader(Console& console, const Arguments& arguments, std::string_view command)
        : m_console(console), m_arguments(arguments), m_command(command) {}

    bool read(const std::string& url) { return splitAddress(url) && checkOptions() && readHeaders() && readSecret(); }
    LoginInput input;
    ExitCode failure = ExitCode::Usage;

private:
    bool splitAddress(const std::string& url) {
        if (!isText(url, "The address")) return false;
        for (const std::string_view protocol : {"https://", "http://"}) {
            if (!startsWithIgnoringCase(url, protocol)) continue;
            input.connectionProtocol = protocol;
            input.server = url.substr(protocol.size());
            return true;
        }
        if (url.find("://") != std::string::npos) {
            m_console.complain("Server address is invalid!");
            failure = ExitCode::BadData;
            return false;
        }
        input.connectionProtocol = "https://";
        input.server = url;
        m_console.complain("No protocol was given; using " + printable(input.address()));
        return true;
    }

    bool checkOptions() {
        const bool stdinPassword = m_arguments.has("password-stdin");
        const bool stdinToken = m_arguments.has("token-stdin");
        input.loginWithToken = m_arguments.has("token") || stdinToken;
        if (!input.loginWithToken) return true;
        if (!stdinPassword && !m_arguments.has("user")) return true;
        (void)complainOfUsage(m_console, "A login is made either with a token or with a user name and password.",
                              m_command);
        return false;
    }

    bool readHeaders() {
        const auto file = m_arguments.value("header-file");
        if (!file) return true;
        struct stat status {};
        std::ifstream stream;
        // Looked at before it is opened: opening a pipe waits for its other end. That of a shell's "<(...)" is there.
        const bool isThere = ::stat(file->c_str(), &status) == 0;
        if (isThere && (S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode))) stream.open(*file, std::ios::binary);
        if (!stream.is_open()) {
            m_console.complain("The file of headers can't be read: " + printable(*file));
            failure = ExitCode::NotFound;
            return false;
        }
        if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
            m_console.complain("Warning: other users may read " + printable(*file) + ". Close it with: chmod 600");
        std::string text(kLongestHeaderFile + 1, '\0');
        stream.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(stream.gcount()));
        auto headers = text.size() > kLongestHeaderFile
                           ? Result<CustomHeaders>(Error{"The file of headers is too long."})
                           : parseHeaderLines(text);
        if (!headers) {
            m_console.complain(headers.error().message);
            failure = ExitCode::BadData;
            return false;
        }
        input.customHeaders = std::move(headers).value();
        return true;
    }

    bool readSecret() {
        std::string& secret = input.loginWithToken ? input.token : input.password;
        if (!input.loginWithToken && !readUser()) return false;
        if (m_arguments.has(input.loginWithToken ? "token-stdin" : "password-stdin"))
            secret = firstLine(m_console.in);
        else if (!askFor(secret))
            return false;
        if (!secret.empty() && secret.size() <= kLongestSecret)
            return isText(secret, input.loginWithToken ? "The token" : "The password");
        m_console.complain(secret.empty() ? "Nothing was given to log in with."
                                          : "That is too long to be a password or token.");
        failure = ExitCode::BadData;
        return false;
    }

    bool readUser() {
        if (const auto user = m_arguments.value("user"))
            input.user = *user;
        else if (m_console.inIsTerminal && !m_arguments.has("password-stdin")) {
            m_console.err << "Username: " << std::flush;
            input.user = firstLine(m_console.in);
        }
        if (!input.user.empty()) return isText(input.user, "The user name");
        (void)complainOfUsage(m_console, "Who logs in? Give --user NAME, or --token.", m_command);
        return false;
    }

    /// Servers take nothing but UTF-8, and something else than what was typed must not go out.
    bool isText(std::string_view given, std::string_view what) {
        if (!given.empty() && text::isValidUtf8(given)) return true;
        m_console.complain(std::string(what) + (given.empty() ? " is empty." : " isn't text in UTF-8."));
        failure = ExitCode::BadData;
        return false;
    }

    bool askFor(std::string& secret) {
        const std::string prompt = input.loginWithToken ? "Token: " : "Password of " + printable(input.user) + ": ";
        const auto answer = m_console.readSecret ? m_console.readSecret(prompt) : std::nullopt;
        if (answer) {
            secret = *answer;
            return true;
        }
        (void)complainOfUsage(m_console,
                              input.loginWithToken
                                  ? "There is no terminal to ask for the token on: use --token-stdin."
                                  : "There is no terminal to ask for the password on: use --password-stdin.",
                              m_command);
        return false;
    }

    Console& m_console;
    const Arguments& m_arguments;
    std::string_view m_command;
};

} // namespace

std::span<const OptionDescription> loginOptions() {
    return kOptions;
}

std::string objectionToSecrets(std::span<const std::string> words) {
    for (const auto& word : words) {
        const auto name = std::string_view(word).substr(0, word.find('='));
        if (name == "--password" || name == "--pass" || name == "--passwd")
            return "A password is never taken from the command line, where others could read it. It is asked for, or "
                   "read "
                   "with --password-stdin.";
        if ((name == "--token" && name.size() < word.size()) || (name == "--token-stdin" && name.size() < word.size()))
            return "A token is never taken from the command line, where others could read it. Give --token alone to be "
                   "asked "
                   "for it, or --token-stdin.";
        if (!word.starts_with('-') && authority(word).find('@') != std::string_view::npos)
            return "An address must not hold a user name or password, which others could read on the command line. "
                   "Give the "
                   "address alone, and --user NAME.";
    }
    return {};
}

std::optional<LoginInput> readLoginInput(Console& console, const Arguments& arguments, const std::string& url,
                                         std::string_view command, ExitCode& failure) {
    Reader reader(console, arguments, command);
    if (reader.read(url)) return std::move(reader.input);
    failure = reader.failure;
    return std::nullopt;
}

Result<CustomHeaders> parseHeaderLines(std::string_view text) {
    CustomHeaders headers;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = text.find('\n');
        const auto line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == '#') continue;
        const auto colon = line.find(':');
        const auto name = trimmed(std::string_view(line).substr(0, colon));
        const auto value =
            colon == std::string::npos ? std::string() : trimmed(std::string_view(line).substr(colon + 1));
        const bool clean = std::none_of(value.begin(), value.end(),
                                        [](unsigned char character) { return character < 0x20 || character == 0x7F; });
        if (colon == std::string::npos || !isHeaderName(name) || !clean)
            return Error{"Line " + std::to_string(number) +
                         " of the file of headers isn't of the form \"Name: value\"."};
        headers.headers.emplace_back(Uuid::random(), CustomHeader{name, value});
    }
    return headers;
}

} // namespace ledgerfinch::cli

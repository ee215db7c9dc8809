// SPDX-License-Identifier: GPL-3.0-or-later
#include "replay/Exchange.h"

#include <fstream>
#include <stdexcept>

namespace ledgerfinch::replay {

namespace {

std::string decodeBase64(std::string_view text) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    unsigned bits = 0;
    int count = 0;
    for (auto letter : text) {
        auto value = digits.find(letter);
        if (value == std::string_view::npos) break;
        bits = bits << 6 | unsigned(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        result += char(bits >> count & 0xFF);
    }
    return result;
}

std::ifstream open(const std::string& file) {
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error("Can't read " + file);
    return stream;
}

/// The values that the recordings share, one a line; later ones may mention earlier ones.
std::vector<Json> readShared(const std::string& file) {
    auto stream = open(file);
    std::vector<Json> values;
    for (std::string line; std::getline(stream, line);)
        values.push_back(Json::parse(line));
    return values;
}

/// Puts the shared values back: {"$": 12} stands for the one on line 13.
void expand(Json& json, const std::vector<Json>& shared) {
    if (json.is_object() && json.size() == 1 && json.contains("$")) {
        json = Json(shared.at(json["$"].get<std::size_t>()));
        expand(json, shared);
        return;
    }
    if (!json.is_structured()) return;
    for (auto& value : json)
        expand(value, shared);
}

Exchange exchangeFrom(const Json& json) {
    Exchange exchange;
    exchange.phase = json.at("phase");
    exchange.name = json.at("name");
    exchange.method = json.at("method");
    exchange.path = json.at("path");
    for (const auto& [name, value] : json.at("headers").items())
        exchange.headers.emplace_back(name, value.get<std::string>());
    exchange.body = json.contains("body_base64") ? decodeBase64(json["body_base64"].get<std::string>())
                                                 : json.value("body", std::string());
    const auto& answer = json.at("answer");
    exchange.status = answer.at("status");
    for (const auto& [name, value] : answer.at("headers").items())
        exchange.answerHeaders[name] = value.get<std::string>();
    exchange.json = answer.contains("json") ? answer["json"] : Json(Json::value_t::discarded);
    if (answer.contains("text")) exchange.text = answer["text"].get<std::string>();
    return exchange;
}

} // namespace

std::vector<Exchange> readExchanges(const std::filesystem::path& file) {
    auto shared = readShared((file.parent_path() / "values.jsonl").string());
    auto stream = open(file.string());
    std::vector<Exchange> exchanges;
    for (std::string line; std::getline(stream, line);) {
        auto json = Json::parse(line);
        expand(json, shared);
        exchanges.push_back(exchangeFrom(json));
    }
    return exchanges;
}

std::map<std::string, Exception> readExceptions(const std::string& file) {
    auto stream = open(file);
    std::map<std::string, Exception> exceptions;
    for (std::string line; std::getline(stream, line);) {
        if (line.empty() || line.front() == '#') continue;
        auto first = line.find('\t');
        auto second = line.find('\t', first + 1);
        if (second == std::string::npos) throw std::runtime_error("No reason in: " + line);
        exceptions[line.substr(0, first)] = {line.substr(first + 1, second - first - 1), line.substr(second + 1)};
    }
    return exceptions;
}

} // namespace ledgerfinch::replay

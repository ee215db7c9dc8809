// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/DecodeReport.h"

#include "records/JsonReader.h"
#include "records/JsonWriter.h"

namespace ledgerfinch::decoding {

void mendNext(std::optional<std::string>& next, const DecodeContext& context) {
    static constexpr std::string_view kPlain = "http://";
    static constexpr std::string_view kSecure = "https://";
    if (!next || context.serverSetting.find("https") == std::string::npos) return;
    for (auto at = next->find(kPlain); at != std::string::npos; at = next->find(kPlain, at + kSecure.size()))
        next->replace(at, kPlain.size(), kSecure);
}

void print(const DecodeContext& context, std::string_view message, const Failure& failure) {
    if (!context.console) return;
    if (failure.value.empty())
        context.console->error("%{public}s%{public}s", message, failure.describe());
    else
        context.console->error("%{public}s%{public}s%{private}s%{public}s", message, failure.beforeValue(),
                               failure.value, failure.afterValue());
}

std::string withoutOvertakenMembers(std::string_view text, int levels) {
    const std::size_t start = text.find_first_of("{[");
    // A scalar, or deeper than any record goes.
    if (start == std::string_view::npos || levels == 0 || text.starts_with('"')) return std::string(text);
    JsonWriter writer;
    if (text[start] == '{') {
        const auto object = JsonObject::parse(text);
        if (!object) return std::string(text);
        writer.beginObject();
        for (const auto& [name, value] : object->members())
            writer.rawMember(name, withoutOvertakenMembers(value, levels - 1));
        return writer.endObject().take();
    }
    const auto elements = json::elements(text);
    if (!elements) return std::string(text);
    writer.beginArray();
    for (const std::string& element : *elements)
        writer.raw(withoutOvertakenMembers(element, levels - 1));
    return writer.endArray().take();
}

} // namespace ledgerfinch::decoding

// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/DecodeReport.h"

namespace ledgerfinch::decoding {

void mendNext(std::optional<std::string>& next, const DecodeContext& context) {
    static constexpr std::string_view kPlain = "http://";
    static constexpr std::string_view kSecure = "https://";
    if (!next || context.serverSetting.find("https") == std::string::npos) return;
    for (auto at = next->find(kPlain); at != std::string::npos; at = next->find(kPlain, at + kSecure.size()))
        next->replace(at, kPlain.size(), kSecure);
}

void print(const DecodeContext& context, std::string_view message, const Failure& failure) {
    if (context.console) context.console->error("%{public}s%{public}s", message, failure.describe());
}

} // namespace ledgerfinch::decoding

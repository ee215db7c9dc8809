// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Http.h"

#include <string>
#include <string_view>

namespace ledgerfinch {

/// Why an answer isn't what was asked for.
struct AnswerFailure {
    int status = 0;       ///< as the operations give it, see Status.h
    std::string reason{}; ///< a sentence for the person; of addresses it names scheme, host and port alone
};

/// What the transport and the head of an answer amount to: its status, or status::kNoAnswer when there is none or only
/// a part of one, kCancelled when the caller didn't wait, kRedirected, kNeedsHttps or kWebPage for a redirect that was
/// not followed.
[[nodiscard]] int effectiveStatus(const HttpResponse& response);

/// Why the answer is of no use; an empty reason when its status is one of success.
[[nodiscard]] AnswerFailure failureOf(const HttpResponse& response);

/// The same for a body that came with success and isn't what it should be: status::kWebPage or kUnreadable.
[[nodiscard]] AnswerFailure unreadable(const HttpResponse& response);

/// Whether a media type, parameters aside, is that of a web page.
[[nodiscard]] bool isWebPageType(std::string_view contentType);

} // namespace ledgerfinch

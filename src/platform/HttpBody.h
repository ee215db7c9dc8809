// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/HttpState.h"

#include <QIODevice>

namespace ledgerfinch {

/// The body of a request, read in place and only once. Qt sends a request again by itself when the server closes a kept
/// connection instead of answering. Once a byte of the body went out, nobody knows whether the first one was carried
/// out (RFC 9110 section 9.2.2), so the body then refuses to start again and the request fails.
class HttpBody final : public QIODevice {
public:
    HttpBody(std::shared_ptr<PendingResponse::State> state, QObject* parent);

    [[nodiscard]] qint64 size() const override;
    bool seek(qint64 position) override;
    bool reset() override;

protected:
    qint64 readData(char* data, qint64 maximum) override;
    qint64 writeData(const char* data, qint64 length) override;

private:
    std::shared_ptr<PendingResponse::State> m_state;
    qint64 m_position = 0;
};

} // namespace ledgerfinch

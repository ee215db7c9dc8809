// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/HttpBody.h"

#include <algorithm>
#include <cstring>

namespace ledgerfinch {

HttpBody::HttpBody(std::shared_ptr<PendingResponse::State> state, QObject* parent)
    : QIODevice(parent), m_state(std::move(state)) {
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 HttpBody::size() const {
    return static_cast<qint64>(m_state->request.body.size());
}

bool HttpBody::seek(qint64 position) {
    return position == 0 && reset();
}

bool HttpBody::reset() {
    return m_position == 0;
}

qint64 HttpBody::readData(char* data, qint64 maximum) {
    const auto count = std::min(maximum, size() - m_position);
    if (count <= 0) return maximum == 0 ? 0 : -1;
    std::memcpy(data, m_state->request.body.data() + m_position, static_cast<std::size_t>(count));
    m_position += count;
    return count;
}

qint64 HttpBody::writeData(const char* /*data*/, qint64 /*length*/) {
    return -1;
}

} // namespace ledgerfinch

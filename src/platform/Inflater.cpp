// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Inflater.h"

#include <array>

#include <zlib.h>

namespace ledgerfinch {

struct Inflater::Private {
    z_stream stream{};
    bool usable = false;
    bool complete = true;
};

Inflater::Inflater() : m_d(std::make_unique<Private>()) {
    // The largest window, and either kind of header.
    m_d->usable = ::inflateInit2(&m_d->stream, 15 + 32) == Z_OK;
}

Inflater::~Inflater() {
    ::inflateEnd(&m_d->stream);
}

Inflater::Status Inflater::add(std::string_view piece, std::string& output, std::int64_t maximumBytes) {
    if (!m_d->usable) return Status::Broken;
    auto& stream = m_d->stream;
    std::array<char, 64 * 1024> buffer;
    // zlib never writes there; its interface has no const.
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    stream.avail_in = static_cast<uInt>(piece.size());
    bool outputFilled = false;
    while (stream.avail_in > 0 || outputFilled) {
        // A stream may consist of several members, one after another.
        if (m_d->complete) ::inflateReset(&stream);
        m_d->complete = false;
        stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream.avail_out = static_cast<uInt>(buffer.size());
        const int result = ::inflate(&stream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
            m_d->usable = false;
            return Status::Broken;
        }
        const auto count = buffer.size() - stream.avail_out;
        if (static_cast<std::int64_t>(output.size() + count) > maximumBytes) return Status::TooLarge;
        output.append(buffer.data(), count);
        m_d->complete = result == Z_STREAM_END;
        outputFilled = stream.avail_out == 0 && !m_d->complete;
    }
    return Status::Going;
}

bool Inflater::isComplete() const {
    return m_d->usable && m_d->complete;
}

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecodeEverything.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ledgerfinch::fuzz::decodeAsAttributes({reinterpret_cast<const char*>(data), size});
    return 0;
}

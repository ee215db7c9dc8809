// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Memory.h"

#include <malloc.h>

namespace ledgerfinch {

void keepMemorySmall() {
    // Setting the threshold also stops glibc from raising it (mallopt(3)): by default the first large page of documents
    // that is freed moves all later ones into the heap, where they leave holes.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_ARENA_MAX, 2);
}

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace ledgerfinch {

/// Makes the allocator give large blocks (pages of documents, files) back to the system as soon as they are free, and
/// keep few arenas: a long sync then stays as small as a short one. Called once at the start of a program, before its
/// threads.
void keepMemorySmall();

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace ledgerfinch::testing {

/// An SQLite VFS over the default one that lets one operation, or all from one on, fail with a chosen code. One fault
/// is set at a time, for all files opened through it. Thread-safe.
class FaultVfs {
public:
    /// What StoreDescription::vfs takes.
    static constexpr const char* kName = "lf-fault";
    enum Operation : unsigned {
        Write = 1,
        Sync = 2,
        Open = 4,
        Lock = 8, ///< of the file or of the shared memory; only taking one fails, never letting it go
        Truncate = 16,
        Read = 32,
        AllOperations = 63
    };
    enum class Lasting { No, Yes };

    /// Registers it; again is harmless.
    static void install();
    /// The number-th of these operations from now on (the next one is 1) fails with this SQLite code.
    static void failAt(unsigned operations, int number, int code, Lasting lasting = Lasting::No);
    static void clear();
    /// True when the fault that was set has struck.
    static bool hasStruck();
};

} // namespace ledgerfinch::testing

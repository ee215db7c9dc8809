// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QEventLoop>

namespace ledgerfinch::cli {

/// Serves the event loop until the screen's work is done; `signal` is what it emits when that may have changed. Main
/// thread.
template <class Screen, class Signal, class Done>
void waitForScreen(Screen& screen, Signal signal, Done done) {
    if (done()) return;
    QEventLoop loop;
    QObject::connect(&screen, signal, &loop, [&] {
        if (done()) loop.quit();
    });
    loop.exec();
}

} // namespace ledgerfinch::cli

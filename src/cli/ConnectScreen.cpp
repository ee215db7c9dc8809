// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ConnectScreen.h"

#include "cli/DisplayText.h"
#include "cli/Interrupt.h"
#include "cli/ServerFailure.h"
#include "cli/WaitForScreen.h"

namespace ledgerfinch::cli {
void fillIn(ConnectForm& form, const LoginInput& input, const UserDefaults& defaults) {
    form.setConnectionProtocol(QString::fromStdString(input.connectionProtocol));
    form.setServer(QString::fromStdString(input.server));
    form.setLoginWithToken(input.loginWithToken);
    form.setUser(QString::fromStdString(input.user));
    form.setPass(QString::fromStdString(input.password));
    form.setToken(QString::fromStdString(input.token));
    const auto kept = AllCustomHeaders::load(defaults);
    const auto* keptHere = kept.find(input.address());
    form.customHeaders()->setConfiguredHeaders(input.customHeaders.value_or(keptHere ? *keptHere : CustomHeaders()));
}

bool runForm(ConnectForm& form, const std::function<void()>& start) {
    InterruptWatch watch([&] { form.cancel(); });
    start();
    waitForScreen(form, &ConnectForm::isBusyChanged, [&] { return !form.isBusy(); });
    return !watch.interrupted();
}

ExitCode complainOfConnecting(const Console& console, const Services& services, const ConnectForm& form,
                              const LoginInput& input) {
    if (const auto& failure = form.failure()) return complainOf(console, services, input.address(), *failure);
    console.complain(printable(form.error().toStdString()));
    return ExitCode::Failed;
}

void tellDoubt(const Console& console, const ConnectForm& form, const LoginInput& input) {
    const auto doubt = form.reason().toStdString();
    if (form.failure() || doubt.empty()) return;
    console.complain(hostText(input.address()) + ": The server didn't confirm the token. " + printable(doubt));
}

ExitCode complainOfInterruption(const Console& console) {
    console.complain("Stopped. Nothing was changed.");
    return ExitCode::Interrupted;
}

} // namespace ledgerfinch::cli

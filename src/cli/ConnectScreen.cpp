// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ConnectScreen.h"

#include "cli/Interrupt.h"
#include "cli/WaitForScreen.h"
#include "connection/ApiError.h"

namespace ledgerfinch::cli {
namespace {

ExitCode exitCodeOfStatus(std::string_view status) {
    if (status == "400" || status == "401" || status == "403") return ExitCode::Refused;
    return ExitCode::Failed;
}

} // namespace

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

ExitCode exitCodeOfConnecting(std::string_view error) {
    constexpr std::string_view kResponded = "Server responded: ";
    constexpr std::string_view kUnexpected = "Unexpected response: ";
    if (error == ApiError::invalidCredentials().localizedDescription() || error == "Login Information incorrect!")
        return ExitCode::Refused;
    if (error == ApiError::invalidURL().localizedDescription() || error == "Server address is invalid!")
        return ExitCode::BadData;
    if (error.starts_with(ApiError::secretsUnavailable({}).localizedDescription())) return ExitCode::Refused;
    if (error.starts_with(kResponded)) return exitCodeOfStatus(error.substr(kResponded.size()));
    if (error.starts_with(kUnexpected)) {
        const auto status = error.substr(kUnexpected.size());
        return exitCodeOfStatus(status.substr(0, status.find('\n')));
    }
    return ExitCode::Unreachable;
}

} // namespace ledgerfinch::cli

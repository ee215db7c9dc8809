// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/SecretStore.h"

#include "platform/DispatchQueue.h"
#include "platform/SecretService.h"

#include <QLibrary>
#include <QObject>
#include <QThread>

#include <qt6keychain/keychain.h>

#include <cassert>
#include <chrono>
#include <condition_variable>
#include <functional>

namespace ledgerfinch {

namespace {

/// As long as a person may need for the prompt of the service.
constexpr std::chrono::seconds kTimeLimit{30};

/// QtKeychain's jobs need an event loop and share one executor, which belongs to the thread that first used it. So one
/// thread serves all stores, until the process ends.
QObject* keychainContext() {
    static QObject* const context = [] {
        auto* thread = new QThread;
        thread->setObjectName(QStringLiteral("keychain"));
        auto* object = new QObject;
        object->moveToThread(thread);
        thread->start();
        return object;
    }();
    return context;
}

/// libsecret keeps its session with the service for the life of the process, even when the service was started anew and
/// knows nothing of it. On the keychain thread: makes it begin a new one when another process serves.
void followService(const std::string& owner) {
    static std::string known;
    if (owner.empty() || owner == known) return;
    if (!known.empty()) {
        QLibrary library(QStringLiteral("secret-1"), 0);
        if (const auto disconnect = library.resolve("secret_service_disconnect")) disconnect();
    }
    known = owner;
}

/// What a job left behind. Shared, since the job may end after the caller lost patience.
struct Outcome {
    std::mutex mutex;
    std::condition_variable wake;
    bool finished = false;
    QKeychain::Error error = QKeychain::OtherError;
    std::string description = "The secret service doesn't answer.";
    std::string data;

    void finish(const QKeychain::Job& job, std::string bytes) {
        const std::lock_guard lock(mutex);
        finished = true;
        error = job.error();
        description = job.errorString().toStdString();
        data = std::move(bytes);
        wake.notify_all();
    }
};

QString text(std::string_view value) {
    return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size()));
}

/// Runs a job to its end, or for as long as we wait. The result is a copy that nobody else touches.
template <class KeychainJob>
void run(Outcome& result, std::string_view service, std::string_view account,
         const std::function<void(KeychainJob&)>& prepare, const std::function<std::string(KeychainJob&)>& takeData) {
    assert(!mainQueue::isCurrent() && "the secret service would block the window");
    const auto outcome = std::make_shared<Outcome>();
    const auto owner = secretService::currentOwner();
    QMetaObject::invokeMethod(
        keychainContext(),
        [outcome, owner, service = text(service), account = text(account), prepare, takeData] {
            followService(owner);
            auto* job = new KeychainJob(service);
            job->setKey(account);
            job->setInsecureFallback(false);
            prepare(*job);
            QObject::connect(job, &QKeychain::Job::finished, job,
                             [outcome, job, takeData] { outcome->finish(*job, takeData(*job)); });
            job->start();
        },
        Qt::QueuedConnection);

    std::unique_lock lock(outcome->mutex);
    outcome->wake.wait_for(lock, kTimeLimit, [&] { return outcome->finished; });
    result.error = outcome->error;
    result.description = outcome->description;
    result.data = std::move(outcome->data);
}

Error errorOf(const Outcome& outcome) {
    return {outcome.description, static_cast<int>(outcome.error)};
}

class ServiceSecretStore final : public SecretStore {
public:
    SecretReading read(std::string_view service, std::string_view account) override {
        Outcome outcome;
        run<QKeychain::ReadPasswordJob>(
            outcome, service, account, [](QKeychain::ReadPasswordJob&) {},
            [](QKeychain::ReadPasswordJob& job) { return job.binaryData().toStdString(); });
        if (outcome.error == QKeychain::NoError) return {SecretState::Found, std::move(outcome.data), {}, 0};
        if (outcome.error == QKeychain::EntryNotFound) return explainNotFound(outcome, service, account);
        return {SecretState::Unavailable, {}, outcome.description, static_cast<int>(outcome.error)};
    }

    Result<void> save(std::string_view data, std::string_view service, std::string_view account) override {
        Outcome outcome;
        run<QKeychain::WritePasswordJob>(
            outcome, service, account,
            [bytes = QByteArray(data.data(), static_cast<qsizetype>(data.size()))](QKeychain::WritePasswordJob& job) {
                job.setBinaryData(bytes);
            },
            [](QKeychain::WritePasswordJob&) { return std::string(); });
        if (outcome.error != QKeychain::NoError) return errorOf(outcome);
        return {};
    }

    Result<void> remove(std::string_view service, std::string_view account) override {
        Outcome outcome;
        run<QKeychain::DeletePasswordJob>(
            outcome, service, account, [](QKeychain::DeletePasswordJob&) {},
            [](QKeychain::DeletePasswordJob&) { return std::string(); });
        if (outcome.error == QKeychain::NoError || outcome.error == QKeychain::EntryNotFound) return {};
        return errorOf(outcome);
    }

    [[nodiscard]] std::string kind() const override { return "Secret Service"; }

private:
    /// A locked collection reads like an empty one, so we ask again in a way that tells them apart.
    static SecretReading explainNotFound(const Outcome& outcome, std::string_view service, std::string_view account) {
        switch (secretService::lockState(service, account)) {
        case secretService::LockState::Unlocked:
            return {};
        case secretService::LockState::Locked:
            return {SecretState::Unavailable, {}, "The keyring is locked.", static_cast<int>(outcome.error)};
        case secretService::LockState::NoAnswer:
            break;
        }
        return {SecretState::Unavailable, {}, "The secret service went away.", QKeychain::OtherError};
    }
};

} // namespace

std::unique_ptr<SecretStore> makeServiceSecretStore() {
    return std::make_unique<ServiceSecretStore>();
}

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "cli/Interruption.h"
#include "cli/ProgressLine.h"
#include "cli/ServerFailure.h"
#include "cli/SessionLogin.h"
#include "cli/commands/Commands.h"

#include "connection/Status.h"
#include "platform/DispatchQueue.h"
#include "sync/SyncDriver.h"

#include <algorithm>
#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

/// What the pass tells, brought to the main thread and onto one line. Outlives the calls that are still queued.
class SyncDisplay : public std::enable_shared_from_this<SyncDisplay> {
public:
    explicit SyncDisplay(Console& console) : m_line(std::in_place, console) {}

    SyncObserver observer() {
        SyncObserver observer;
        observer.stage = [self = shared_from_this()](loadingData stage) {
            mainQueue::async([self, stage] {
                self->m_stage = stageText(stage);
                self->m_more.clear();
                self->show();
            });
        };
        observer.additionalInformation = [self = shared_from_this()](const additionalLoadingInfo& info) {
            mainQueue::async([self, info] { self->take(info); });
        };
        observer.error = [self = shared_from_this()](const std::string& text) {
            mainQueue::async([self, text] { self->addError(text); });
        };
        return observer;
    }
    void stopping() {
        m_stopping = true;
        show();
    }
    /// Takes the line away; what comes later is dropped.
    std::vector<std::string> end() {
        m_line.reset();
        return std::move(m_errors);
    }

private:
    void take(const additionalLoadingInfo& info) {
        if (const auto* success = std::get_if<additionalLoadingInfo::Success>(&info.value))
            m_more = success->text;
        else if (const auto* error = std::get_if<additionalLoadingInfo::Error>(&info.value))
            addError(error->text);
        else
            m_more.clear();
        show();
    }
    void addError(const std::string& text) {
        if (std::find(m_errors.begin(), m_errors.end(), text) == m_errors.end()) m_errors.push_back(text);
    }
    void show() {
        if (!m_line) return;
        if (m_stopping)
            m_line->show("Stopping after the record in hand…");
        else
            m_line->show(m_more.empty() ? m_stage : m_stage + ": " + m_more);
    }

    std::optional<ProgressLine> m_line;
    std::string m_stage;
    std::string m_more;
    std::vector<std::string> m_errors;
    bool m_stopping = false;
};

/// Says what a pass left undone.
class Report {
public:
    Report(Console& console, const ApiHandler& api, std::vector<std::string> errors)
        : m_console(console), m_api(api), m_errors(std::move(errors)) {}

    ExitCode incomplete(const SyncResult& result) {
        if (result.storeFailure) {
            m_console.complain("The local store can't be written to: " + printable(*result.storeFailure) +
                               " What came before is kept; sync again once that is mended.");
            return ExitCode::CannotCreate;
        }
        std::string reason = m_api.reasonFor(result.status);
        if (result.status == 401) {
            complain(result.status, reason);
            return ExitCode::Refused;
        }
        if (!result.anythingCame) {
            complain(result.status, reason, " The local documents stay as they are.");
            return exitCodeOfStatus(result.status);
        }
        // The pass knows which page, and which document on it.
        if (result.status == status::kUnreadable && !m_errors.empty()) reason = m_errors.back();
        complain(result.status, reason,
                 " Not everything came. What came is kept; the next sync makes up for the rest.");
        return ExitCode::PartlyFailed;
    }

    ExitCode of(const SyncResult& result, bool interrupted) {
        switch (result.outcome) {
        case SyncOutcome::Finished:
            return interrupted ? stopped() : ExitCode::Ok;
        case SyncOutcome::Incomplete:
            return incomplete(result);
        case SyncOutcome::Offline:
            m_console.complain("Ledgerfinch runs in offline mode, without a server.");
            return ExitCode::Refused;
        case SyncOutcome::NoAnswer:
            complain(status::kNoAnswer, m_api.reasonFor(status::kNoAnswer), " The local documents stay as they are.");
            return ExitCode::Unreachable;
        case SyncOutcome::TokenRefused:
            complain(401, m_api.reasonFor(401));
            return ExitCode::Refused;
        case SyncOutcome::AlreadyRunning:
            m_console.complain("Another process is syncing this store. Try again later.");
            return ExitCode::Busy;
        case SyncOutcome::Stopped:
            if (interrupted) return stopped();
            m_console.complain("Stopped, because another server became the active one.");
            return ExitCode::Failed;
        }
        return ExitCode::Internal;
    }

private:
    [[nodiscard]] ExitCode stopped() const {
        m_console.complain("Stopped. What came until now is kept.");
        return ExitCode::Interrupted;
    }
    void complain(int status, std::string_view reason, std::string_view consequence = {}) {
        m_console.complain(failureText(m_api.Server(), status, reason) + std::string(consequence));
    }

    Console& m_console;
    const ApiHandler& m_api;
    std::vector<std::string> m_errors;
};

constexpr std::array<OptionDescription, 1> kOptions{{
    {"full", "", "Fetch every document again, not only those that changed since the last sync."},
}};

constexpr std::array<ExitCode, 12> kEndsWith{ExitCode::Ok,          ExitCode::Failed,   ExitCode::PartlyFailed,
                                             ExitCode::Usage,       ExitCode::BadData,  ExitCode::NotFound,
                                             ExitCode::Unreachable, ExitCode::Internal, ExitCode::CannotCreate,
                                             ExitCode::Busy,        ExitCode::Refused,  ExitCode::Interrupted};

class SyncCommand final : public Command {
public:
    std::string_view name() const override { return "sync"; }
    std::string_view summary() const override { return "Bring the local store up to the server's state."; }
    std::string_view description() const override {
        return "Fetches what changed on the active server, then the files that the settings ask for. On a "
               "terminal one line tells how far it is; elsewhere only errors are written.\n\n"
               "Ctrl-C gives up the request that is waited for and ends the sync after the record in hand; "
               "everything until then is kept, and the next sync makes up for the rest. One process at a time "
               "syncs a store.";
    }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        auto* program = context.program();
        if (!program) return context.failure();
        const auto display = std::make_shared<SyncDisplay>(console);
        std::optional<SyncDriver> driver;
        Interruption interruption([&] {
            if (!driver) return;
            driver->stop();
            display->stopping();
        });
        const auto session = restoreSession(console, *program, interruption.cancellation());
        if (!session.api) return session.failure;

        program->sweepStrays();
        driver.emplace(program->services(), program->core());
        SyncRequest request;
        if (arguments.has("full")) request.extent = SyncExtent::Everything;
        const auto result = runBlocking([&] {
            const auto ended = driver->runSync(session.api, display->observer(), request);
            driver->downloads().wait();
            return ended;
        });
        auto code = Report(console, *session.api, display->end()).of(result, interruption.requested());
        if (const auto failure = driver->downloads().writeFailure()) {
            console.complain("Files of documents can't be kept on this device: " + printable(*failure));
            if (code == ExitCode::Ok) code = ExitCode::CannotCreate;
        }
        if (code == ExitCode::Ok && console.outIsTerminal) writeSummary(console, program->core());
        return code;
    }

private:
    static void writeSummary(Console& console, CoreDataHandler& core) {
        FetchRequest all;
        all.entity = CD_Document::kEntityName;
        if (const auto count = core.viewContext()->count(all))
            console.out << "Up to date: " << *count << (*count == 1 ? " document.\n" : " documents.\n");
    }
};

} // namespace

std::unique_ptr<Command> makeSyncCommand() {
    return std::make_unique<SyncCommand>();
}

} // namespace ledgerfinch::cli

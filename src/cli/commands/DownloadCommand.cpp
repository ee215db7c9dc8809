// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ActiveStore.h"
#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "cli/DocumentText.h"
#include "cli/Interruption.h"
#include "cli/OutputFile.h"
#include "cli/ProgressLine.h"
#include "cli/ServerFailure.h"
#include "cli/SessionLogin.h"
#include "cli/commands/Commands.h"

#include "connection/AnswerFailure.h"
#include "connection/Status.h"
#include "connection/endpoints/Files.h"
#include "platform/DispatchQueue.h"
#include "platform/MimeTypes.h"
#include "platform/Text.h"

#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

/// What is to be fetched, copied out of the store.
struct Wanted {
    std::int64_t id = 0;
    std::optional<Uuid> uuid;
    std::string title;
    std::string originalName;
};

struct Fetched {
    std::string bytes;
    std::string fileName;
    std::string notKept = {}; ///< why it isn't on this device now
};

using Progress = std::function<void(std::int64_t, std::int64_t)>;

/// Far above the largest document that anyone scans.
constexpr std::int64_t kMaximumBytes = 2LL * 1024 * 1024 * 1024;

/// Errors of files have none of the statuses of answers.
constexpr int kNoFile = 0;

ExitCode complainOfFetching(Console& console, const std::string& server, const Error& error) {
    if (error.code == kNoFile) {
        console.complain("The file on this device can't be read: " + printable(error.message));
        return ExitCode::Failed;
    }
    if (error.code == status::kCancelled) {
        console.complain("Stopped.");
        return ExitCode::Interrupted;
    }
    console.complain(failureText(server, error.code, error.message));
    return exitCodeOfStatus(error.code);
}

std::string extensionOf(const std::string& fileName) {
    auto extension = std::filesystem::path(fileName).extension().string();
    return extension.empty() ? extension : extension.substr(1);
}

std::string extensionOfType(std::string_view type) {
    return mimeTypes::preferredExtension(type.substr(0, type.find(';'))).value_or("");
}

std::string fallbackName(const Wanted& wanted) {
    return "document-" + std::to_string(wanted.id);
}

/// The original as it was added, straight from the server; the local copy may be the archived form.
Result<Fetched> fetchOriginal(ApiHandler& api, const Wanted& wanted, const Progress& progress,
                              Cancellation& cancellation) {
    auto request = api.request("GET", "/api/documents/" + std::to_string(wanted.id) + "/download/?original=true",
                               ApiHandler::Accept::No);
    request.downloadProgress = progress;
    auto response = api.send(std::move(request), &cancellation);
    const std::filesystem::path original(wanted.originalName);
    const auto type = header(response.headers, "content-type").value_or("");
    auto failure = failureOf(response);
    // The login page of a proxy comes with success too.
    const auto known = extensionOf(wanted.originalName);
    if (failure.reason.empty() && isWebPageType(type) && !known.starts_with("htm") && !known.starts_with("xht"))
        failure = unreadable(response);
    if (!failure.reason.empty()) return Error{failure.reason, failure.status};
    const auto extension = known.empty() ? extensionOfType(type) : known;
    const auto stem = wanted.originalName.empty() ? wanted.title : original.stem().string();
    return Fetched{std::move(response.body), safeFileName(stem, extension, fallbackName(wanted))};
}

/// The file as the device keeps it, and kept there for the next time if that can be.
Result<Fetched> fetchAndKeep(ApiHandler& api, const DocumentFiles& files, const Wanted& wanted,
                             const Progress& progress, Cancellation& cancellation) {
    auto document = downloadDocumentData(api, wanted.id, progress, &cancellation);
    if (!document) return document.error();
    const auto name = DocumentFiles::downloadName(*wanted.uuid, document->mimeType);
    const auto kept = files.storeFile(DocumentFiles::kDocuments, *wanted.uuid, name, document->bytes);
    return Fetched{std::move(document->bytes), safeFileName(wanted.title, extensionOf(name), fallbackName(wanted)),
                   kept ? std::string() : kept.error().message};
}

Result<Fetched> readLocal(FileSystem& files, const std::filesystem::path& file, const Wanted& wanted) {
    auto bytes = files.read(file, kMaximumBytes);
    if (!bytes) return Error{bytes.error().message, kNoFile};
    return Fetched{std::move(bytes).value(),
                   safeFileName(wanted.title, extensionOf(file.filename().string()), fallbackName(wanted))};
}

std::filesystem::path targetPath(const std::optional<std::string>& output, const std::string& fileName) {
    if (!output) return fileName;
    std::error_code ignored;
    const std::filesystem::path path(*output);
    if (output->ends_with('/') || std::filesystem::is_directory(path, ignored)) return path / fileName;
    return path;
}

ExitCode writeOut(Console& console, const Fetched& fetched, const Arguments& arguments) {
    const auto target = targetPath(arguments.value("output"), fetched.fileName);
    const bool intoStream = isStream(target);
    const auto written =
        writeOutputFile(target, fetched.bytes, arguments.has("force") ? Overwrite::Yes : Overwrite::No);
    const std::string name = printable(target.string());
    if (written) {
        if (!intoStream) console.out << name << '\n';
        return ExitCode::Ok;
    }
    if (written.error().code == static_cast<int>(OutputError::Exists))
        console.complain(name + " exists already. --force overwrites it.");
    else
        console.complain(name + " could not be written: " + written.error().message);
    return ExitCode::CannotCreate;
}

constexpr std::array<PositionalDescription, 1> kPositionals{{{"ID", "The document's number on the server."}}};
constexpr std::array<OptionDescription, 3> kOptions{{
    {"output", "PATH",
     "The file to write, or the folder to write into; the current folder unless said otherwise. Into a pipe or a "
     "device, "
     "/dev/stdout say, go the bytes alone.",
     'o'},
    {"original", "", "The file as it was added, not the archived form; always fetched from the server."},
    {"force", "", "Overwrite what is there.", 'f'},
}};

constexpr std::array<ExitCode, 10> kEndsWith{
    ExitCode::Ok,          ExitCode::Failed,   ExitCode::Usage,        ExitCode::BadData, ExitCode::NotFound,
    ExitCode::Unreachable, ExitCode::Internal, ExitCode::CannotCreate, ExitCode::Refused, ExitCode::Interrupted};

class DownloadCommand final : public Command {
public:
    std::string_view name() const override { return "download"; }
    std::string_view summary() const override { return "Write a document's file."; }
    std::string_view description() const override {
        return "Writes the file of a document and tells its name. A file that is on this device already is "
               "taken from there, without the server; else it is downloaded, and kept where that can be. The "
               "name is made of the document's title.\n\n"
               "Nothing is overwritten without --force.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        const auto id = wholeNumber(arguments.positional(0));
        if (!id) return complainOfUsage(console, "ID is a whole number, the one in the first column of list.", name());
        if (arguments.value("output") == "") return complainOfUsage(console, "--output needs a name.", name());
        auto* program = context.programToRead();
        if (!program) return context.failure();
        ExitCode failure = ExitCode::Ok;
        auto* core = storeToRead(context, *program, failure);
        if (!core) return failure;
        const auto document = core->getDocument(*id);
        if (!document) {
            console.complain("There is no document " + std::to_string(*id) + " in the local store.");
            return ExitCode::NotFound;
        }
        const Wanted wanted{*id, document->uuid(), titleText(*document), document->original_file_name().value_or("")};
        if (!wanted.uuid) {
            console.complain("This document has no file.");
            return ExitCode::NotFound;
        }
        const auto fetched = fetch(console, *program, wanted, arguments.has("original"), failure);
        return fetched ? writeOut(console, *fetched, arguments) : failure;
    }

private:
    static std::optional<Fetched> fetch(Console& console, CompositionRoot& program, const Wanted& wanted, bool original,
                                        ExitCode& failure) {
        auto& files = program.core().documentFiles();
        auto& fileSystem = *program.services().files;
        const auto server = program.services().defaults->string("server").value_or("");
        const auto done = [&](Result<Fetched> result) -> std::optional<Fetched> {
            if (result) return std::move(result).value();
            failure = complainOfFetching(console, server, result.error());
            return std::nullopt;
        };
        if (!original)
            if (const auto file = files.existingDocumentFile(*wanted.uuid))
                return done(readLocal(fileSystem, *file, wanted));
        Interruption interruption;
        const auto session = restoreSession(console, program, interruption.cancellation());
        if (!session.api) {
            failure = session.failure;
            return std::nullopt;
        }
        const auto line = std::make_shared<std::optional<ProgressLine>>(std::in_place, console);
        const Progress progress = [line](std::int64_t bytes, std::int64_t all) {
            mainQueue::async([line, bytes, all] {
                if (!*line) return;
                (*line)->show("Downloading: " + text::formatByteCount(bytes) +
                              (all > 0 ? " of " + text::formatByteCount(all) : std::string()));
            });
        };
        auto result = runBlocking([&] {
            auto& cancellation = interruption.cancellation();
            return original ? fetchOriginal(*session.api, wanted, progress, cancellation)
                            : fetchAndKeep(*session.api, files, wanted, progress, cancellation);
        });
        line->reset();
        if (result && !result->notKept.empty())
            console.complain("The file could not be kept on this device: " + printable(result->notKept));
        return done(std::move(result));
    }
};

} // namespace

std::unique_ptr<Command> makeDownloadCommand() {
    return std::make_unique<DownloadCommand>();
}

} // namespace ledgerfinch::cli

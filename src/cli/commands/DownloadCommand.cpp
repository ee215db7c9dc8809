// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ActiveStore.h"
#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "cli/DocumentText.h"
#include "cli/OutputFile.h"
#include "cli/ProgressLine.h"
#include "cli/SessionLogin.h"
#include "cli/commands/Commands.h"

#include "connection/Status.h"
#include "platform/DispatchQueue.h"
#include "platform/MimeTypes.h"
#include "platform/Text.h"
#include "sync/DocumentFile.h"

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
};

using Progress = std::function<void(std::int64_t, std::int64_t)>;

/// Far above the largest document that anyone scans.
constexpr std::int64_t kMaximumBytes = 2LL * 1024 * 1024 * 1024;

ExitCode complainOfStatus(Console& console, const Error& error) {
    if (error.code == 401) {
        console.complain(kTokenRefused);
        return ExitCode::Refused;
    }
    if (error.code == status::kNoAnswer) {
        console.complain("Could not load document from server. Are you connected to the internet?");
        return ExitCode::Unreachable;
    }
    if (error.code == 0) {
        console.complain("The file could not be kept: " + printable(error.message));
        return ExitCode::CannotCreate;
    }
    console.complain("An error occured while trying to fetch this document. Was it deleted on the server?");
    return error.code == 404 ? ExitCode::NotFound : ExitCode::Failed;
}

std::string extensionOf(const std::string& fileName) {
    auto extension = std::filesystem::path(fileName).extension().string();
    return extension.empty() ? extension : extension.substr(1);
}

/// The original as it was added, straight from the server; the local copy may be the archived form.
Result<Fetched> fetchOriginal(ApiHandler& api, const Wanted& wanted, const Progress& progress) {
    auto request = api.request("GET", "/api/documents/" + std::to_string(wanted.id) + "/download/?original=true",
                               ApiHandler::Accept::No);
    request.downloadProgress = progress;
    auto response = api.send(std::move(request));
    if (response.error || response.status == 0) return Error{"no answer", status::kNoAnswer};
    if (response.status != 200) return Error{"refused", response.status};
    const std::filesystem::path original(wanted.originalName);
    auto extension = extensionOf(wanted.originalName);
    if (extension.empty()) {
        const auto type = header(response.headers, "content-type").value_or("");
        extension = mimeTypes::preferredExtension(type.substr(0, type.find(';'))).value_or("");
    }
    const auto stem = wanted.originalName.empty() ? wanted.title : original.stem().string();
    return Fetched{std::move(response.body), safeFileName(stem, extension, "document-" + std::to_string(wanted.id))};
}

Result<Fetched> readLocal(FileSystem& files, const std::filesystem::path& file, const Wanted& wanted) {
    auto bytes = files.read(file, kMaximumBytes);
    if (!bytes) return Error{bytes.error().message, 0};
    return Fetched{std::move(bytes).value(), safeFileName(wanted.title, extensionOf(file.filename().string()),
                                                          "document-" + std::to_string(wanted.id))};
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
    const auto written =
        writeOutputFile(target, fetched.bytes, arguments.has("force") ? Overwrite::Yes : Overwrite::No);
    const std::string name = printable(target.string());
    if (written) {
        console.out << name << '\n';
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
    {"output", "PATH", "The file to write, or the folder to write into; the current folder unless said otherwise.",
     'o'},
    {"original", "", "The file as it was added, not the archived form; always fetched from the server."},
    {"force", "", "Overwrite what is there.", 'f'},
}};

class DownloadCommand final : public Command {
public:
    std::string_view name() const override { return "download"; }
    std::string_view summary() const override { return "Write a document's file."; }
    std::string_view description() const override {
        return "Writes the file of a document and tells its name. A file that is on this device already is taken from "
               "there, "
               "without the server; else it is downloaded and kept. The name is made of the document's title.\n\n"
               "Nothing is overwritten without --force.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return kOptions; }

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
        const auto done = [&](Result<Fetched> result) -> std::optional<Fetched> {
            if (result) return std::move(result).value();
            failure = complainOfStatus(console, result.error());
            return std::nullopt;
        };
        if (!original)
            if (const auto file = files.existingDocumentFile(*wanted.uuid))
                return done(readLocal(fileSystem, *file, wanted));
        const auto session = restoreSession(console, program);
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
        auto result = runBlocking([&]() -> Result<Fetched> {
            if (original) return fetchOriginal(*session.api, wanted, progress);
            const auto file = getDocumentFile(*session.api, files, *wanted.uuid, wanted.id, wanted.title, progress);
            if (!file) return file.error();
            return readLocal(fileSystem, *file, wanted);
        });
        line->reset();
        return done(std::move(result));
    }
};

} // namespace

std::unique_ptr<Command> makeDownloadCommand() {
    return std::make_unique<DownloadCommand>();
}

} // namespace ledgerfinch::cli

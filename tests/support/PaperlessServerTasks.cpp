// SPDX-License-Identifier: GPL-3.0-or-later
// Uploads and the tasks that turn them into documents.
#include "support/PaperlessServerTasks.h"

#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerFiles.h"
#include "support/PaperlessServerMatching.h"
#include "support/PaperlessServerPaging.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t longestStoredTitle = 127;
constexpr std::int64_t largestSerialNumber = 4294967295;

/// The form as JSON, as the checks want it: empty texts are left out, repeated tags become a list.
Json formJson(const Request& request) {
    Json form = Json::object();
    for (const auto& part : request.parts) {
        if (part.content.empty() || part.name == "document") continue;
        if (part.name == "tags" || part.name == "custom_fields") {
            form[part.name].push_back(part.content);
        } else {
            form[part.name] = part.content;
        }
    }
    return form;
}

bool isSupported(std::string_view type) {
    return type == "application/pdf" || type == "text/plain" || type == "text/csv" || type == "image/png" ||
           type == "image/jpeg" || type == "image/tiff" || type == "image/gif" || type == "image/bmp" ||
           type == "image/webp";
}

std::string newTaskId(State& state) {
    auto digits = sha1Hex("task " + std::to_string(state.takeId("task_ids")) + std::to_string(state.now()));
    return digits.substr(0, 8) + "-" + digits.substr(8, 4) + "-4" + digits.substr(13, 3) + "-a" + digits.substr(17, 3) +
           "-" + digits.substr(20, 12);
}

std::string stemOf(const std::string& fileName) {
    return fileName.substr(0, fileName.rfind('.'));
}

std::size_t pagesIn(std::string_view pdf) {
    std::size_t count = 0;
    for (auto at = pdf.find("/Type /Page"); at != std::string_view::npos; at = pdf.find("/Type /Page", at + 1)) {
        auto next = at + 11 < pdf.size() ? pdf[at + 11] : ' ';
        if (next != 's') ++count;
    }
    return std::max<std::size_t>(1, count);
}

bool isWholePdf(std::string_view pdf) {
    return pdf.find("%%EOF") != std::string_view::npos;
}

/// Why the upload can't become a document; empty when it can.
std::string refusal(const State& state, Task& task, const std::string& checksum) {
    const auto& upload = task.upload;
    auto refuse = [&](const std::string& reason) {
        return task.fileName + ": Not consuming " + task.fileName + ": " + reason;
    };
    for (const auto& [id, document] : state.documents) {
        if (upload.archiveSerialNumber && document.archiveSerialNumber == upload.archiveSerialNumber)
            return refuse("Given ASN " + std::to_string(*upload.archiveSerialNumber) + " already exists!");
    }
    auto mayRepeat = state.release.repeatsFiles && !state.refusesDuplicates;
    for (const auto& [id, document] : state.documents) {
        if (mayRepeat || document.checksum != checksum) continue;
        auto text = refuse("It is a duplicate of " + document.title + " (#" + std::to_string(id) + ")" +
                           (state.release.mode == ServerMode::V2_7 ? "" : "."));
        task.duplicateOf = id;
        task.duplicateInTrash = document.deletedAt.has_value();
        return task.duplicateInTrash ? text + " Note: existing document is in the trash." : text;
    }
    if (upload.mimeType == "application/pdf" && !isWholePdf(*upload.file))
        return task.fileName + ": Error occurred while consuming document " + task.fileName + ": InputFileError: ";
    return {};
}

/// What the upload left open is filled in from the text, as far as the owner sees the attributes.
void assignMatches(const State& state, Document& document, const User& owner) {
    auto add = [&](Id tag) {
        if (std::find(document.tags.begin(), document.tags.end(), tag) == document.tags.end())
            document.tags.push_back(tag);
    };
    for (const auto& [id, tag] : state.table(Kind::Tag)) {
        if (tag.isInboxTag && maySee(owner, tag.owner, tag.permissions)) add(id);
    }
    for (auto tag : matchingAttributes(state, Kind::Tag, document, owner))
        add(tag);
    auto first = [&](Kind kind, OptionalId& target) {
        auto found = matchingAttributes(state, kind, document, owner);
        if (!target && !found.empty()) target = found.front();
    };
    first(Kind::Correspondent, document.correspondent);
    first(Kind::DocumentType, document.documentType);
    first(Kind::StoragePath, document.storagePath);
}

void consume(State& state, Task& task) {
    const auto& upload = task.upload;
    auto checksum = md5Hex(*upload.file);
    task.result = refusal(state, task, checksum);
    task.done = state.now();
    if (!task.result.empty()) return;

    Document document;
    document.id = state.takeId("documents");
    document.title =
        std::string(textPrefix(upload.title.empty() ? stemOf(task.fileName) : upload.title, longestStoredTitle));
    document.mimeType = upload.mimeType;
    auto isText = upload.mimeType.starts_with("text/");
    auto known = state.fileTexts.find(task.fileName);
    auto isKnown = known != state.fileTexts.end();
    document.content = isText ? *upload.file : isKnown ? known->second.content : "Text of " + task.fileName;
    document.added = document.modified = document.filed = state.now();
    auto found = isKnown && !known->second.date.empty() ? known->second.date : localDateText(document.added);
    document.created = upload.createdDate.empty() ? found : upload.createdDate;
    document.correspondent = upload.correspondent;
    document.documentType = upload.documentType;
    document.storagePath = upload.storagePath;
    document.tags = upload.tags;
    document.archiveSerialNumber = upload.archiveSerialNumber;
    document.originalFileName = task.fileName;
    // Release 3 keeps no second file of a PDF that was born as one.
    document.hasArchive = !isText && (state.release.archivesEveryPdf || upload.mimeType != "application/pdf");
    document.owner = task.owner;
    for (auto field : upload.customFields)
        document.customFields.push_back({field, nullptr});
    if (upload.mimeType == "application/pdf") document.pageCount = std::int64_t(pagesIn(*upload.file));
    document.checksum = checksum;
    document.original = upload.file;
    if (task.owner && state.users.contains(*task.owner)) assignMatches(state, document, state.users.at(*task.owner));
    task.succeeded = true;
    task.relatedDocument = document.id;
    task.result = "Success. New document id " + std::to_string(document.id) + " created";
    state.documents[document.id] = std::move(document);
}

} // namespace

void advanceTask(State& state, Task& task) {
    if (task.state == TaskState::Pending) {
        task.state = TaskState::Started;
        task.started = state.now();
    } else if (task.state == TaskState::Started) {
        if (task.kind == TaskKind::Consume) {
            consume(state, task);
        } else {
            task.done = state.now();
            task.succeeded = true;
            for (auto id : task.touches) {
                if (auto* document = state.liveDocument(id)) document->modified = *task.done;
            }
        }
        task.state = TaskState::Done;
    }
    state.changed();
}

Task& addTask(State& state, TaskKind kind) {
    Task task;
    task.kind = kind;
    task.id = state.takeId("tasks");
    task.taskId = newTaskId(state);
    task.created = state.now();
    return state.tasks[task.id] = std::move(task);
}

void finishAtOnce(State& state, Task& task) {
    while (state.taskPace == TaskPace::Immediate && task.state != TaskState::Done)
        advanceTask(state, task);
    state.changed();
}

/// In the oldest release tasks were nobody's.
bool maySeeTask(const Context& context, const Task& task) {
    return !context.release.checksRights || maySee(*context.user, task.owner, {});
}

Response uploadDocument(Context& context) {
    auto mayAdd = !context.release.checksRights || hasPermission(context.state, *context.user, "add_document");
    if (!mayAdd) return bareText(403, "Insufficient permissions");
    auto form = formJson(context.request);
    BodyReader body(form, false);
    Upload upload;
    std::optional<Micros> created;
    body.time("created", created);
    if (created) upload.createdDate = localDateText(*created);
    auto file = std::find_if(context.request.parts.begin(), context.request.parts.end(),
                             [](const FormPart& part) { return part.name == "document" && !part.fileName.empty(); });
    auto hasFile = file != context.request.parts.end();
    if (!hasFile) {
        body.fail("document", "No file was submitted.");
    } else if (file->content.empty()) {
        body.fail("document", "The submitted file is empty.");
    } else {
        upload.mimeType = mimeTypeOf(file->content, file->fileName);
        if (!isSupported(upload.mimeType)) body.fail("document", "File type " + upload.mimeType + " not supported");
    }
    body.text("title", upload.title);
    auto& state = context.state;
    body.relation("correspondent", upload.correspondent, existsIn(state.table(Kind::Correspondent)));
    body.relation("document_type", upload.documentType, existsIn(state.table(Kind::DocumentType)));
    body.relation("storage_path", upload.storagePath, existsIn(state.table(Kind::StoragePath)));
    body.relations("tags", upload.tags, existsIn(state.table(Kind::Tag)));
    body.integer("archive_serial_number", upload.archiveSerialNumber, 0, largestSerialNumber);
    body.relations("custom_fields", upload.customFields, existsIn(state.customFields));
    if (body.failed()) return body.errors();

    auto& task = addTask(state, TaskKind::Consume);
    task.fileName = file->fileName;
    task.owner = context.user->id;
    upload.file = std::make_shared<const std::string>(file->content);
    task.upload = std::move(upload);
    finishAtOnce(state, task);
    return jsonResponse(task.taskId);
}

Response listTasks(Context& context) {
    const auto& request = context.request;
    auto status = request.argument("status");
    if (context.release.hasTaskQueue && status && lowerAscii(*status) != *status) {
        auto text = "Select a valid choice. " + *status + " is not one of the available choices.";
        return jsonResponse(Json{{"status", Json::array({text})}}, 400);
    }
    auto fits = [&](std::string_view key, std::string_view value) {
        auto wanted = request.argument(key);
        return !wanted || *wanted == value;
    };
    auto acknowledged = request.argument("acknowledged");
    std::vector<Id> seen;
    for (auto entry = context.state.tasks.rbegin(); entry != context.state.tasks.rend(); ++entry) {
        const auto& task = entry->second;
        if (!maySeeTask(context, task) || !fits("task_id", task.taskId)) continue;
        if (!context.release.checksRights && task.acknowledged) continue;
        if (acknowledged && task.acknowledged != request.flag("acknowledged")) continue;
        if (status && lowerAscii(*status) != taskStatus(task)) continue;
        if (!fits("task_name", taskKindName(task)) || !fits("task_type", taskKindName(task))) continue;
        seen.push_back(task.id);
    }
    auto json = [&](Id id) {
        return taskJson(context.state, context.state.tasks.at(id), context.api);
    };
    Response response;
    if (context.api.hasPagedTasks) {
        response = pagedResponse(context, seen, [&](std::string& to, Id id) { to += textOf(json(id)); });
    } else {
        auto list = Json::array();
        for (auto id : seen)
            list.push_back(json(id));
        response = jsonResponse(list);
    }
    if (context.state.taskPace == TaskPace::PerPoll) {
        for (auto id : seen)
            advanceTask(context.state, context.state.tasks.at(id));
    }
    return response;
}

Response activeTasks(Context& context) {
    auto list = Json::array();
    for (auto entry = context.state.tasks.rbegin(); entry != context.state.tasks.rend(); ++entry) {
        const auto& task = entry->second;
        if (task.state != TaskState::Done && maySee(*context.user, task.owner, {}))
            list.push_back(taskJson(context.state, task, context.api));
    }
    return jsonResponse(list);
}

Response getTask(Context& context) {
    auto found = context.state.tasks.find(context.id());
    if (found == context.state.tasks.end() || !maySeeTask(context, found->second)) return noMatch("PaperlessTask");
    return jsonResponse(taskJson(context.state, found->second, context.api));
}

Response acknowledgeTasks(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    std::vector<Id> ids;
    if (context.release.hasTaskQueue && parsed.json.is_object() && parsed.json.value("all", Json()) == Json(true)) {
        std::size_t count = 0;
        for (auto& [id, task] : context.state.tasks) {
            auto isNews = !task.acknowledged && task.state == TaskState::Done && maySee(*context.user, task.owner, {});
            if (isNews) task.acknowledged = true;
            count += isNews;
        }
        return jsonResponse(Json{{"result", count}});
    }
    body.relations("tasks", ids, existsIn(context.state.tasks), true);
    if (body.has("tasks") && body.failed())
        body.fail("tasks", "Some tasks in tasks don't exist or were specified twice.");
    if (body.failed()) return body.errors();
    for (auto id : ids)
        context.state.tasks.at(id).acknowledged = true;
    context.state.changed();
    return jsonResponse(Json{{"result", ids.size()}});
}

} // namespace ledgerfinch::support

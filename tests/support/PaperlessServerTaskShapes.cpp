// SPDX-License-Identifier: GPL-3.0-or-later
// Tasks as each release and API version shows them.
#include "support/PaperlessServerSerialize.h"

namespace ledgerfinch::support {

namespace {

struct StateNames {
    const char* upper;
    const char* lower;
    const char* display;
};

StateNames namesOf(const Task& task) {
    if (task.state == TaskState::Pending) return {"PENDING", "pending", "Pending"};
    if (task.state == TaskState::Started) return {"STARTED", "started", "Started"};
    return task.succeeded ? StateNames{"SUCCESS", "success", "Success"} : StateNames{"FAILURE", "failure", "Failure"};
}

struct KindNames {
    const char* name;
    const char* display;
    const char* trigger;
    const char* triggerDisplay;
};

KindNames namesOf(TaskKind kind) {
    switch (kind) {
    case TaskKind::BulkUpdate:
        return {"bulk_update", "Bulk Update", "system", "System"};
    case TaskKind::Reprocess:
        return {"reprocess_document", "Reprocess Document", "manual", "Manual"};
    case TaskKind::Consume:
    case TaskKind::Rotate:
        break;
    }
    return {"consume_file", "Consume File", "api_upload", "API Upload"};
}

Json timeOrNull(const std::optional<Micros>& time) {
    return time ? Json(localTimeText(*time)) : Json(nullptr);
}

Json fileName(const Task& task) {
    return task.fileName.empty() ? Json(nullptr) : Json(task.fileName);
}

/// The document that a task made, or the one that stood in its way.
OptionalId documentOf(const Task& task) {
    return task.relatedDocument ? task.relatedDocument : task.duplicateOf;
}

Json taskOfTwoSeven(const Task& task) {
    auto isDone = task.state == TaskState::Done;
    return Json{{"id", task.id},
                {"task_id", task.taskId},
                {"task_file_name", fileName(task)},
                {"date_created", localTimeText(task.created)},
                {"date_done", timeOrNull(task.done)},
                {"type", "file"},
                {"status", namesOf(task).upper},
                {"result", isDone ? Json(task.result) : Json(nullptr)},
                {"acknowledged", task.acknowledged},
                {"related_document", task.relatedDocument ? Json(std::to_string(*task.relatedDocument)) : Json()}};
}

Json taskOfTwo(const Task& task) {
    auto isDone = task.state == TaskState::Done;
    auto related = task.duplicateInTrash ? task.relatedDocument : documentOf(task);
    return Json{{"id", task.id},
                {"task_id", task.taskId},
                {"task_name", namesOf(task.kind).name},
                {"task_file_name", fileName(task)},
                {"date_created", localTimeText(task.created)},
                {"date_done", timeOrNull(task.done)},
                {"type", "auto_task"},
                {"status", namesOf(task).upper},
                {"result", isDone ? Json(task.result) : Json(nullptr)},
                {"acknowledged", task.acknowledged},
                {"related_document", related ? Json(std::to_string(*related)) : Json()},
                {"owner", orNull(task.owner)}};
}

/// Version 9 of release 3, which makes the old keys up from the new ones.
Json taskOfThree(const State& state, const Task& task) {
    Json result;
    if (task.duplicateOf) {
        result = "Not consuming: It is a duplicate of document #" + std::to_string(*task.duplicateOf);
    } else if (task.state == TaskState::Done && task.kind == TaskKind::Consume) {
        result = task.result;
    }
    auto duplicates = Json::array();
    auto found = task.duplicateOf ? state.documents.find(*task.duplicateOf) : state.documents.end();
    if (found != state.documents.end()) duplicates.push_back(duplicateJson(found->second));
    return Json{{"id", task.id},
                {"task_id", task.taskId},
                {"task_name", namesOf(task.kind).name},
                {"task_file_name", fileName(task)},
                {"type", task.kind == TaskKind::BulkUpdate ? "auto_task" : "manual_task"},
                {"status", namesOf(task).upper},
                {"date_created", localTimeText(task.created)},
                {"date_done", timeOrNull(task.done)},
                {"result", std::move(result)},
                {"acknowledged", task.acknowledged},
                {"related_document", orNull(documentOf(task))},
                {"duplicate_documents", std::move(duplicates)},
                {"owner", orNull(task.owner)}};
}

/// What the upload asked for, in the words of the worker.
Json overridesOf(const Task& task) {
    const auto& upload = task.upload;
    auto json = Json::object();
    if (!task.isOwnFile) json["filename"] = task.fileName;
    if (!upload.title.empty()) json["title"] = upload.title;
    if (upload.correspondent) json["correspondent_id"] = *upload.correspondent;
    if (upload.documentType) json["document_type_id"] = *upload.documentType;
    if (!upload.tags.empty()) json["tag_ids"] = upload.tags;
    if (upload.storagePath) json["storage_path_id"] = *upload.storagePath;
    if (!upload.createdDate.empty()) json["created"] = upload.createdDate;
    if (upload.archiveSerialNumber) json["asn"] = *upload.archiveSerialNumber;
    if (task.owner) json["owner_id"] = *task.owner;
    json["skip_asn_if_exists"] = task.isOwnFile;
    return json;
}

Json inputOf(const Task& task) {
    if (task.fileName.empty()) return Json::object();
    return Json{{"filename", task.fileName}, {"mime_type", task.upload.mimeType}, {"overrides", overridesOf(task)}};
}

Json resultOf(const Task& task) {
    if (task.state != TaskState::Done) return nullptr;
    if (task.duplicateOf)
        return Json{{"duplicate_of", *task.duplicateOf}, {"duplicate_in_trash", task.duplicateInTrash}};
    if (!task.succeeded)
        return Json{{"error_type", "ConsumerError"}, {"error_message", task.result}, {"traceback", "  File ..."}};
    return task.relatedDocument ? Json{{"document_id", *task.relatedDocument}} : Json();
}

Json taskOfVersionTen(const Task& task) {
    auto kind = namesOf(task.kind);
    auto state = namesOf(task);
    auto seconds = [](const std::optional<Micros>& from, const std::optional<Micros>& to) {
        return from && to ? Json(double(*to - *from) / double(second)) : Json(nullptr);
    };
    auto related = documentOf(task);
    auto isDone = task.state == TaskState::Done;
    return Json{{"id", task.id},
                {"task_id", task.taskId},
                {"task_type", kind.name},
                {"task_type_display", kind.display},
                {"trigger_source", kind.trigger},
                {"trigger_source_display", kind.triggerDisplay},
                {"status", state.lower},
                {"status_display", state.display},
                {"date_created", localTimeText(task.created)},
                {"date_started", timeOrNull(task.started)},
                {"date_done", timeOrNull(task.done)},
                {"duration_seconds", seconds(task.started, task.done)},
                {"wait_time_seconds", isDone ? seconds(task.created, task.started) : Json(nullptr)},
                {"input_data", inputOf(task)},
                {"result_data", resultOf(task)},
                {"related_document_ids", related ? Json::array({*related}) : Json::array()},
                {"acknowledged", task.acknowledged},
                {"owner", orNull(task.owner)}};
}

} // namespace

std::string_view taskStatus(const Task& task) {
    return namesOf(task).lower;
}

std::string_view taskKindName(const Task& task) {
    return namesOf(task.kind).name;
}

Json taskJson(const State& state, const Task& task, const ApiShape& api) {
    if (api.hasPagedTasks) return taskOfVersionTen(task);
    if (api.mode == ServerMode::V3) return taskOfThree(state, task);
    return api.mode == ServerMode::V2_7 ? taskOfTwoSeven(task) : taskOfTwo(task);
}

} // namespace ledgerfinch::support

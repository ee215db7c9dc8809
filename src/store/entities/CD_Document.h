// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/DocumentSink.h"
#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Correspondent;
class CD_Custom_Field;
class CD_Custom_Field_Value;
class CD_Document_Content;
class CD_Document_Type;
class CD_Group;
class CD_Note;
class CD_Storage_Path;
class CD_Tag;
class CD_User;

/// One document. What the server delivered last lies in server_shadow; a document without it was added on this device
/// and exists nowhere else. local_file is left in the schema and used by nothing.
class CD_Document final : public EntityObject<CD_Document> {
public:
    static constexpr std::string_view kEntityName = "CD_Document";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::uuid("uuid", Indexed::Yes),
        schema::text("title"),
        schema::date("created", Indexed::Yes),
        schema::date("modified"),
        schema::date("added", Indexed::Yes),
        schema::integer("archive_serial_number", Indexed::Yes),
        schema::text("original_file_name"),
        schema::boolean("user_can_change"),
        schema::text("local_file"),
        schema::binary("server_shadow"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("content", "CD_Document_Content", "ofDocument", DeleteRule::Cascade),
        schema::toOne("correspondent", "CD_Correspondent", "ofDocument"),
        schema::toOne("document_type", "CD_Document_Type", "ofDocument"),
        schema::toOne("storage_path", "CD_Storage_Path", "ofDocument"),
        schema::toOne("owner", "CD_User", "owned_documents"),
        schema::toMany("tags", "CD_Tag", "ofDocument"),
        schema::toMany("notes", "CD_Note", "document", DeleteRule::Cascade),
        schema::toMany("custom_fields", "CD_Custom_Field", "ofDocument"),
        schema::toMany("custom_field_values", "CD_Custom_Field_Value", "ofDocument", DeleteRule::Cascade),
        schema::toMany("viewable_by_user", "CD_User", "can_view_documents"),
        schema::toMany("editable_by_user", "CD_User", "can_edit_documents"),
        schema::toMany("viewable_by_group", "CD_Group", "can_view_documents"),
        schema::toMany("editable_by_group", "CD_Group", "can_edit_documents"),
    });

    /// The sink, which may be null, hears of every save of this object; it outlives the object's context.
    explicit CD_Document(DocumentSink* sink = nullptr) : m_sink(sink) {}

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<Uuid> uuid() const { return get<"uuid">(); }
    void setUuid(std::optional<Uuid> value) { set<"uuid">(value); }
    [[nodiscard]] std::optional<std::string> title() const { return get<"title">(); }
    void setTitle(std::optional<std::string> value) { set<"title">(std::move(value)); }
    [[nodiscard]] std::optional<Timestamp> created() const { return get<"created">(); }
    void setCreated(std::optional<Timestamp> value) { set<"created">(value); }
    [[nodiscard]] std::optional<Timestamp> modified() const { return get<"modified">(); }
    void setModified(std::optional<Timestamp> value) { set<"modified">(value); }
    [[nodiscard]] std::optional<Timestamp> added() const { return get<"added">(); }
    void setAdded(std::optional<Timestamp> value) { set<"added">(value); }
    [[nodiscard]] std::int64_t archive_serial_number() const { return get<"archive_serial_number">(); }
    void setArchive_serial_number(std::int64_t value) { set<"archive_serial_number">(value); }
    [[nodiscard]] std::optional<std::string> original_file_name() const { return get<"original_file_name">(); }
    void setOriginal_file_name(std::optional<std::string> value) { set<"original_file_name">(std::move(value)); }
    [[nodiscard]] bool user_can_change() const { return get<"user_can_change">(); }
    void setUser_can_change(bool value) { set<"user_can_change">(value); }
    [[nodiscard]] std::optional<std::string> local_file() const { return get<"local_file">(); }
    void setLocal_file(std::optional<std::string> value) { set<"local_file">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> server_shadow() const { return get<"server_shadow">(); }
    void setServer_shadow(std::optional<std::string> value) { set<"server_shadow">(std::move(value)); }

    [[nodiscard]] Ref<CD_Document_Content> content() const;
    void setContent(const Ref<CD_Document_Content>& target);
    [[nodiscard]] Ref<CD_Correspondent> correspondent() const;
    void setCorrespondent(const Ref<CD_Correspondent>& target);
    [[nodiscard]] Ref<CD_Document_Type> document_type() const;
    void setDocument_type(const Ref<CD_Document_Type>& target);
    [[nodiscard]] Ref<CD_Storage_Path> storage_path() const;
    void setStorage_path(const Ref<CD_Storage_Path>& target);
    [[nodiscard]] Ref<CD_User> owner() const;
    void setOwner(const Ref<CD_User>& target);
    [[nodiscard]] std::vector<Ref<CD_Tag>> tags() const;
    void setTags(const std::vector<Ref<CD_Tag>>& members);
    void addTagsObject(const Ref<CD_Tag>& member);
    void removeTagsObject(const Ref<CD_Tag>& member);
    [[nodiscard]] std::vector<Ref<CD_Note>> notes() const;
    void setNotes(const std::vector<Ref<CD_Note>>& members);
    [[nodiscard]] std::vector<Ref<CD_Custom_Field>> custom_fields() const;
    void setCustom_fields(const std::vector<Ref<CD_Custom_Field>>& members);
    void addCustom_fieldsObject(const Ref<CD_Custom_Field>& member);
    [[nodiscard]] std::vector<Ref<CD_Custom_Field_Value>> custom_field_values() const;
    void setCustom_field_values(const std::vector<Ref<CD_Custom_Field_Value>>& members);
    void addCustom_field_valuesObject(const Ref<CD_Custom_Field_Value>& member);
    [[nodiscard]] std::vector<Ref<CD_User>> viewable_by_user() const;
    void setViewable_by_user(const std::vector<Ref<CD_User>>& members);
    [[nodiscard]] std::vector<Ref<CD_User>> editable_by_user() const;
    void setEditable_by_user(const std::vector<Ref<CD_User>>& members);
    [[nodiscard]] std::vector<Ref<CD_Group>> viewable_by_group() const;
    void setViewable_by_group(const std::vector<Ref<CD_Group>>& members);
    [[nodiscard]] std::vector<Ref<CD_Group>> editable_by_group() const;
    void setEditable_by_group(const std::vector<Ref<CD_Group>>& members);

protected:
    void willSave() override;
    void didSave() override;

private:
    DocumentSink* m_sink = nullptr;
    bool m_updatedInSave = false;
};

} // namespace ledgerfinch

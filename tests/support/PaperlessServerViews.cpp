// SPDX-License-Identifier: GPL-3.0-or-later
// Saved views and share links.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t slugLength = 50;

void readRules(BodyReader& body, std::vector<FilterRule>& target, std::int64_t lastRuleType) {
    const auto* value = body.find("filter_rules");
    if (value == nullptr) {
        if (!body.isPartial()) body.fail("filter_rules", "This field is required.");
        return;
    }
    if (!value->is_array()) {
        auto text = "Expected a list of items but got type \"" + std::string(typeName(*value)) + "\".";
        body.failWith("filter_rules", Json{{"non_field_errors", Json::array({text})}});
        return;
    }
    std::vector<FilterRule> rules;
    auto errors = Json::array();
    auto failed = false;
    for (const auto& entry : *value) {
        BodyReader reader(entry, false);
        FilterRule rule;
        if (!reader.choice("rule_type", rule.ruleType, 0, lastRuleType) && !reader.has("rule_type"))
            reader.fail("rule_type", "This field is required.");
        reader.optionalText("value", rule.value, 255);
        failed = failed || reader.failed();
        errors.push_back(reader.failed() ? Json::parse(reader.errors().body) : Json::object());
        rules.push_back(std::move(rule));
    }
    if (failed) {
        body.failWith("filter_rules", std::move(errors));
        return;
    }
    // An empty value of a rule is as good as none.
    for (auto& rule : rules) {
        if (rule.value && rule.value->empty()) rule.value.reset();
    }
    target = std::move(rules);
}

/// A flag is the owner's, where views are personal the asking user's.
void readFlag(BodyReader& body, const Context& context, std::string_view key, const SavedView& view,
              std::set<Id>& users) {
    auto isPersonal = context.api.hasPersonalViews;
    auto user = isPersonal ? context.user->id : view.owner.value_or(0);
    auto isShown = users.contains(user);
    if (!body.boolean(key, isShown, !isPersonal)) return;
    users.erase(user);
    if (isShown) users.insert(user);
}

void readView(BodyReader& body, const Context& context, SavedView& view) {
    body.text("name", view.name, {.required = true, .mayBeBlank = false, .longest = 128});
    if (context.api.hasPersonalViews) {
        body.relation("owner", view.owner, existsIn(context.state.users));
        body.permissions(context.state, view.permissions);
    }
    if (context.api.hasViewFlags) {
        readFlag(body, context, "show_on_dashboard", view, view.onDashboardOf);
        readFlag(body, context, "show_in_sidebar", view, view.inSidebarOf);
    }
    body.optionalText("sort_field", view.sortField, 128);
    body.boolean("sort_reverse", view.sortReverse);
    readRules(body, view.filterRules, context.release.lastRuleType);
    if (const auto* value = body.find("page_size")) view.pageSize = *value;
    if (const auto* value = body.find("display_mode")) view.displayMode = *value;
    if (const auto* value = body.find("display_fields")) view.displayFields = *value;
}

/// Before they were shared, saved views were shown to their owner only.
bool isVisible(const Context& context, const SavedView& view) {
    if (context.api.hasPersonalViews) return maySee(*context.user, view.owner, view.permissions);
    return view.owner == context.user->id;
}

SavedView* visibleView(Context& context) {
    auto found = context.state.savedViews.find(context.id());
    return found == context.state.savedViews.end() || !isVisible(context, found->second) ? nullptr : &found->second;
}

bool mayChangeView(const Context& context, const SavedView& view) {
    return mayChange(*context.user, view.owner, view.permissions);
}

bool isNameTaken(const State& state, const SavedView& view) {
    return std::any_of(state.savedViews.begin(), state.savedViews.end(), [&](const auto& entry) {
        return entry.second.name == view.name && entry.second.owner == view.owner;
    });
}

Response showView(const Context& context, const SavedView& view, int status = 200) {
    return jsonResponse(savedViewJson(view, *context.user, context.request.flag("full_perms"), context.api), status);
}

/// 50 letters and digits that can't be guessed from outside a test.
std::string newSlug(State& state) {
    auto seed = "share " + std::to_string(state.takeId("slugs"));
    auto text = sha1Hex(seed) + sha1Hex(seed + "!");
    return text.substr(0, slugLength);
}

ShareLink* visibleLink(Context& context) {
    auto found = context.state.shareLinks.find(context.id());
    if (found == context.state.shareLinks.end()) return nullptr;
    return maySee(*context.user, found->second.owner, {}) ? &found->second : nullptr;
}

} // namespace

Response listSavedViews(Context& context) {
    std::vector<const SavedView*> views;
    for (const auto& [id, view] : context.state.savedViews) {
        if (isVisible(context, view)) views.push_back(&view);
    }
    std::stable_sort(views.begin(), views.end(),
                     [](const auto* left, const auto* right) { return left->name < right->name; });
    std::vector<Id> ids;
    for (const auto* view : views)
        ids.push_back(view->id);
    auto full = context.request.flag("full_perms");
    return pagedResponse(context, ids, [&](std::string& to, Id id) {
        to += textOf(savedViewJson(context.state.savedViews.at(id), *context.user, full, context.api));
    });
}

Response createSavedView(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    SavedView view;
    view.owner = context.user->id;
    readView(body, context, view);
    if (body.failed()) return body.errors();
    if (context.api.hasPersonalViews && isNameTaken(context.state, view))
        return jsonResponse(Json{{"error", "Object violates owner / name unique constraint"}}, 400);
    view.id = context.state.takeId("saved_views");
    context.state.savedViews[view.id] = view;
    context.state.changed();
    return showView(context, view, 201);
}

Response getSavedView(Context& context) {
    const auto* view = visibleView(context);
    return view == nullptr ? noMatch("SavedView") : showView(context, *view);
}

Response updateSavedView(Context& context) {
    auto* view = visibleView(context);
    if (view == nullptr) return noMatch("SavedView");
    if (!mayChangeView(context, *view)) return forbidden();
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *view;
    readView(body, context, changed);
    if (body.failed()) return body.errors();
    *view = std::move(changed);
    context.state.changed();
    return showView(context, *view);
}

Response deleteSavedView(Context& context) {
    const auto* view = visibleView(context);
    if (view == nullptr) return noMatch("SavedView");
    if (!mayChangeView(context, *view)) return forbidden();
    context.state.savedViews.erase(view->id);
    context.state.changed();
    return noContent();
}

Response listShareLinks(Context& context) {
    std::vector<Id> ids;
    for (const auto& [id, link] : context.state.shareLinks) {
        if (maySee(*context.user, link.owner, {})) ids.push_back(id);
    }
    return pagedResponse(context, ids,
                         [&](std::string& to, Id id) { to += textOf(shareLinkJson(context.state.shareLinks.at(id))); });
}

Response createShareLink(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    ShareLink link;
    body.time("expiration", link.expiration);
    OptionalId document;
    auto exists = [&](Id id) {
        return context.state.liveDocument(id) != nullptr;
    };
    body.relation("document", document, exists, true, false);
    body.choice("file_version", link.fileVersion, {"archive", "original"});
    if (body.failed()) return body.errors();
    const auto& shared = *context.state.liveDocument(*document);
    auto mayShare = !context.release.checksRights || mayChange(*context.user, shared.owner, shared.permissions);
    if (!mayShare) return detail(403, "Insufficient permissions.");
    link.id = context.state.takeId("share_links");
    link.created = context.state.now();
    link.slug = newSlug(context.state);
    link.document = *document;
    link.owner = context.user->id;
    context.state.shareLinks[link.id] = link;
    context.state.changed();
    return jsonResponse(shareLinkJson(link), 201);
}

Response getShareLink(Context& context) {
    const auto* link = visibleLink(context);
    return link == nullptr ? noMatch("ShareLink") : jsonResponse(shareLinkJson(*link));
}

Response deleteShareLink(Context& context) {
    const auto* link = visibleLink(context);
    if (link == nullptr) return noMatch("ShareLink");
    context.state.shareLinks.erase(link->id);
    context.state.changed();
    return noContent();
}

Response documentShareLinks(Context& context) {
    const auto* document = context.state.liveDocument(context.id());
    if (document == nullptr) return notFound();
    if (!maySee(*context.user, document->owner, document->permissions))
        return bareText(403, "Insufficient permissions to add share link");
    auto now = context.state.clock();
    auto list = Json::array();
    for (auto link = context.state.shareLinks.rbegin(); link != context.state.shareLinks.rend(); ++link) {
        if (link->second.document != document->id) continue;
        if (link->second.expiration && *link->second.expiration <= now) continue;
        list.push_back(shareLinkJson(link->second));
    }
    return jsonResponse(list);
}

} // namespace ledgerfinch::support

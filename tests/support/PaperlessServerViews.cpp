// SPDX-License-Identifier: GPL-3.0-or-later
// Saved views and share links.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::int64_t lastRuleType = 47;
constexpr std::size_t slugLength = 50;

void readRules(BodyReader& body, std::vector<FilterRule>& target) {
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

void readView(BodyReader& body, SavedView& view) {
    body.text("name", view.name, {.required = true, .mayBeBlank = false, .longest = 128});
    body.boolean("show_on_dashboard", view.showOnDashboard, true);
    body.boolean("show_in_sidebar", view.showInSidebar, true);
    body.optionalText("sort_field", view.sortField, 128);
    body.boolean("sort_reverse", view.sortReverse);
    readRules(body, view.filterRules);
    if (const auto* value = body.find("page_size")) view.pageSize = *value;
    if (const auto* value = body.find("display_mode")) view.displayMode = *value;
    if (const auto* value = body.find("display_fields")) view.displayFields = *value;
}

/// Saved views are shown to their owner only.
SavedView* ownView(Context& context) {
    auto found = context.state.savedViews.find(context.id());
    return found == context.state.savedViews.end() || found->second.owner != context.user->id ? nullptr
                                                                                              : &found->second;
}

Response showView(const Context& context, const SavedView& view, int status = 200) {
    return jsonResponse(savedViewJson(view, *context.user, context.request.flag("full_perms")), status);
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
        if (view.owner == context.user->id) views.push_back(&view);
    }
    std::stable_sort(views.begin(), views.end(),
                     [](const auto* left, const auto* right) { return left->name < right->name; });
    std::vector<Id> ids;
    for (const auto* view : views)
        ids.push_back(view->id);
    auto full = context.request.flag("full_perms");
    return pagedResponse(context, ids, [&](std::string& to, Id id) {
        to += textOf(savedViewJson(context.state.savedViews.at(id), *context.user, full));
    });
}

Response createSavedView(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    SavedView view;
    view.owner = context.user->id;
    readView(body, view);
    if (body.failed()) return body.errors();
    view.id = context.state.takeId("saved_views");
    context.state.savedViews[view.id] = view;
    context.state.changed();
    return showView(context, view, 201);
}

Response getSavedView(Context& context) {
    const auto* view = ownView(context);
    return view == nullptr ? noMatch("SavedView") : showView(context, *view);
}

Response updateSavedView(Context& context) {
    auto* view = ownView(context);
    if (view == nullptr) return noMatch("SavedView");
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *view;
    readView(body, changed);
    if (body.failed()) return body.errors();
    *view = std::move(changed);
    context.state.changed();
    return showView(context, *view);
}

Response deleteSavedView(Context& context) {
    const auto* view = ownView(context);
    if (view == nullptr) return noMatch("SavedView");
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
    if (!mayChange(*context.user, shared.owner, shared.permissions)) return detail(403, "Insufficient permissions.");
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

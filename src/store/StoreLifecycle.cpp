// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "platform/Fatal.h"
#include "store/FilenameSchemes.h"
#include "store/StoreNames.h"

namespace ledgerfinch {
namespace {

constexpr std::string_view kSuffix = ".sqlite";

/// An account that signed out takes the setting with it, for good.
bool checkedCloudSetting(UserDefaults& defaults, const CloudDataHandler& cloud, const Logger& log) {
    const bool wanted = defaults.boolean("useiCloud").value_or(false);
    if (cloud.isSignedIn()) return wanted;
    log.info("No iCloud token found, user likely disabled iCloud");
    if (wanted)
        if (const auto written = defaults.set("useiCloud", false); !written)
            log.error("Couldn't write a setting: %{public}s", written.error().message);
    return false;
}

} // namespace

CoreDataHandler::CoreDataHandler(Services& services, std::shared_ptr<DocumentSink> sink, StoreAccess access)
    : m_services(services), m_log(services.logger("CoreDataHandler")), m_access(access),
      m_model(makeLedgerfinchModel(std::move(sink))), m_cloud(services), m_files(services, m_cloud) {
    std::error_code error;
    if (!std::filesystem::is_directory(services.paths.container, error))
        fatal("Shared file container could not be created.");
    const auto mode = checkedCloudSetting(*services.defaults, m_cloud, m_log) ? Mode::Mirrored : Mode::Local;
    const auto name = activeStoreName();
    if (mode == Mode::Mirrored)
        m_log.debug("Initializing store with iCloud support");
    else
        m_log.debug("Initializing store for instance %s", name);
    auto store = openStore(name, mode);
    if (!store) {
        m_log.error("Error during core data initialisation: %@", store.error().message);
        const bool unwritable = store.error().code == static_cast<int>(StoreErrorCode::Full) ||
                                store.error().code == static_cast<int>(StoreErrorCode::ReadOnly);
        fatal("Core Data Store failed " + store.error().message,
              unwritable ? FatalStatus::CannotCreate : FatalStatus::Software);
    }
    m_store = std::move(*store);
    m_log.debug("CoreData store initialized");
}

CoreDataHandler::~CoreDataHandler() = default;

std::shared_ptr<PersistentContainer> CoreDataHandler::persistenceContainer() const {
    const std::lock_guard lock(m_mutex);
    return m_store.container;
}

ContextRef CoreDataHandler::backgroundContext() const {
    const std::lock_guard lock(m_mutex);
    return m_store.background;
}

ContextRef CoreDataHandler::viewContext() const {
    const std::lock_guard lock(m_mutex);
    return m_store.view;
}

std::string CoreDataHandler::storeName() const {
    const std::lock_guard lock(m_mutex);
    return m_store.name;
}

bool CoreDataHandler::isOfflineStore() const {
    return storeNames::isOffline(storeName());
}

bool CoreDataHandler::isMirrored() const {
    const std::lock_guard lock(m_mutex);
    return m_store.mode == Mode::Mirrored;
}

ContextRef CoreDataHandler::contextOrView(ContextRef context) const {
    return context ? context : viewContext();
}

std::string CoreDataHandler::activeStoreName() const {
    return storeNames::active(*m_services.defaults);
}

Result<CoreDataHandler::OpenStore> CoreDataHandler::openStore(const std::string& name, Mode mode) const {
    if (!isStoreName(name)) return Error{"The store's name isn't a file name"};
    const auto file = m_cloud.localRoot() / (name + std::string(kSuffix));
    m_log.debug("Opening store from %s", file.string());
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    if (!error && size == 0) m_log.error("The store %s is an empty file. It is made anew.", name);
    if (error || size == 0) m_files.noteNewStore();
    auto container = PersistentContainer::open(*m_model, {file, Durability::Normal, {}, m_access}, m_log);
    if (!container) return container.error();

    OpenStore store{name, mode, *container, (*container)->newBackgroundContext(), (*container)->viewContext()};
    // What the person edits wins over the store; what a sync brings yields to it.
    store.background->setMergePolicy(MergePolicy::ByPropertyStoreTrump);
    store.view->setMergePolicy(MergePolicy::ByPropertyObjectTrump);
    store.background->setAutomaticallyMergesChangesFromParent(true);
    store.view->setAutomaticallyMergesChangesFromParent(true);
    return store;
}

Result<std::shared_ptr<PersistentContainer>> CoreDataHandler::containerFor(std::string_view name) const {
    {
        const std::lock_guard lock(m_mutex);
        if (m_store.name == name) return m_store.container;
    }
    if (!isStoreName(name)) return Error{"The store's name isn't a file name"};
    const auto file = m_cloud.localRoot() / (std::string(name) + std::string(kSuffix));
    if (!m_services.files->exists(file)) return Error{"There is no such store"};
    return PersistentContainer::open(*m_model, {file, Durability::Normal, {}}, m_log);
}

Result<void> CoreDataHandler::moveTo(const std::string& name, Mode mode) {
    {
        const std::lock_guard lock(m_mutex);
        // Both modes open a file alike, so a store that is open already stays as it is.
        if (m_store.name == name) {
            m_store.mode = mode;
            return {};
        }
    }
    auto opened = openStore(name, mode);
    if (!opened) {
        m_log.error("Error during core data initialisation: %@", opened.error().message);
        return opened.error();
    }
    OpenStore old;
    {
        const std::lock_guard lock(m_mutex);
        old = std::exchange(m_store, std::move(*opened));
    }
    return {};
}

Result<void> CoreDataHandler::moveToStore(std::string_view name) {
    // Offline papers exist nowhere else: no server's documents are merged into, or removed from, their store.
    if (storeNames::isOffline(name) && storeNames::isOfflineClaimed(*m_services.defaults))
        return Error{"The store of offline mode can't be a server's"};
    auto moved = moveTo(std::string(name), Mode::Local);
    if (moved) m_log.debug("Moved to store %{public}s", name);
    return moved;
}

Result<void> CoreDataHandler::moveToLocalStore() {
    auto moved = moveTo(activeStoreName(), Mode::Local);
    if (moved) m_log.debug("Moved to local CoreData store");
    return moved;
}

Result<void> CoreDataHandler::moveToCloudStore() {
    auto moved = moveTo(activeStoreName(), Mode::Mirrored);
    if (moved) m_log.debug("Moved to iCloud CoreData store");
    return moved;
}

Result<void> CoreDataHandler::saveViewContext() {
    const auto view = viewContext();
    Result<void> saved;
    view->performAndWait([&] {
        saved = view->save();
        if (saved) return;
        view->rollback();
        m_log.error("Encountered an error while updating core data: %@", saved.error().message);
    });
    return saved;
}

void CoreDataHandler::resetStore() {
    const auto container = persistenceContainer();
    for (const auto& entity : container->model().entities())
        if (const auto deleted = container->batchDelete(entity.name); !deleted)
            m_log.error("Delete ERROR %s: %@", entity.name, deleted.error().message);
    const auto view = viewContext();
    view->performAndWait([&] {
        const auto saved = view->save();
        if (saved) return;
        view->rollback();
        m_log.error("Encountered an error while updating core data: %@", saved.error().message);
    });
}

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/ManageInstancesView.h"

#include "connection/Instances.h"
#include "connection/RemoveInstance.h"
#include "store/CoreDataHandler.h"
#include "store/FilenameSchemes.h"
#include "store/StoreRemoval.h"

#include <QPointer>

namespace ledgerfinch {

ManageInstancesView::ManageInstancesView(Services& services, CoreDataHandler& core, QObject* parent)
    : QObject(parent), m_services(services), m_core(core) {}

QString ManageInstancesView::server() const {
    return QString::fromStdString(m_services.defaults->string("server").value_or(""));
}

QStringList ManageInstancesView::connectedInstances() const {
    QStringList addresses;
    for (const auto& [address, instance] : ConnectedInstances::load(*m_services.defaults).instances)
        addresses.append(QString::fromStdString(address));
    return addresses;
}

QString ManageInstancesView::removalQuestion() const {
    return QStringLiteral("Disconnect from Instance ") + m_instanceToRemove + QStringLiteral("?");
}

QString ManageInstancesView::currentInstanceText() const {
    return QStringLiteral("You can't disconnect from the currently active instance. Please switch and try again.");
}

void ManageInstancesView::askToDisconnect(const QString& address) {
    if (m_isRemoving) return;
    m_instanceToRemove = address;
    m_showRemovalAlert = true;
    emit changed();
}

void ManageInstancesView::dismissAlert() {
    m_showRemovalAlert = false;
    m_showCurrentInstanceAlert = false;
    emit changed();
}

void ManageInstancesView::reload() {
    emit changed();
}

void ManageInstancesView::disconnectInstance() {
    if (m_isRemoving || m_instanceToRemove.isEmpty()) return;
    m_showRemovalAlert = false;
    m_isRemoving = true;
    m_failure.reset();
    emit changed();
    const QPointer<ManageInstancesView> self(this);
    m_queue.async([this, self, address = m_instanceToRemove.toStdString()] {
        const auto removal = removeBesideMainThread(address);
        mainQueue::async([self, removal] {
            if (!self) return;
            self->m_isRemoving = false;
            self->m_showCurrentInstanceAlert = removal.isActive;
            self->m_failure = removal.failure;
            emit self->changed();
        });
    });
}

QString ManageInstancesView::error() const {
    return m_failure ? QString::fromStdString(m_failure->localizedDescription()) : QString();
}

ManageInstancesView::Removal ManageInstancesView::removeBesideMainThread(const std::string& address) {
    auto& defaults = *m_services.defaults;
    const auto active = defaults.string("server").value_or("");
    const auto connected = ConnectedInstances::load(defaults);
    const auto* current = connected.find(active);
    const auto* target = connected.find(address);
    if (current == nullptr || target == nullptr) return {};
    if (current == target) return {true};

    const auto removed = removeInstance(m_services, target->first);
    if (removed.error) return {false, removed.error};
    // Settings can be edited: a store that isn't this entry's alone holds somebody else's papers.
    if (!removed.ownedStore || removed.entry->store == m_core.storeName()) return {};
    emptyStore(removed.entry->store);
    // Nobody has it open any more. What can't go now is swept later.
    if (const auto gone = removeStoreFiles(m_services, removed.entry->store); !gone)
        m_services.logger("ManageInstancesView")
            .error("The store of a disconnected instance can't be removed: %{public}s", gone.error().message);
    return {};
}

void ManageInstancesView::emptyStore(const std::string& store) {
    const auto log = m_services.logger("ManageInstancesView");
    if (!isStoreName(store)) return;
    const auto file = m_services.paths.container / (store + ".sqlite");
    if (!m_services.files->exists(file)) return;
    auto opened = PersistentContainer::open(ledgerfinchModel(), {file, Durability::Normal, {}}, log);
    if (!opened) {
        log.error("The store of a disconnected instance can't be opened: %{public}s", opened.error().message);
        return;
    }
    const auto& container = opened.value();
    std::vector<Uuid> folders;
    const auto context = container->newBackgroundContext();
    context->performAndWait([&] {
        FetchRequest request;
        request.sort = {{"created", SortOrder::Ascending, SortComparison::Plain}};
        const auto documents = context->fetch<CD_Document>(request);
        if (!documents) return;
        for (const auto& document : documents.value())
            if (const auto uuid = document->uuid()) folders.push_back(*uuid);
    });
    bool emptied = true;
    for (const auto& entity : container->model().entities()) {
        const auto deleted = container->batchDelete(entity.name);
        if (deleted) continue;
        emptied = false;
        log.error("Delete ERROR %s: %@", entity.name, deleted.error().message);
    }
    // Files go only once nothing refers to them any more.
    if (!emptied) return;
    for (const auto& uuid : folders)
        m_core.documentFiles().removeFiles(uuid);
}

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/CustomHeadersView.h"

namespace ledgerfinch {

QString CustomHeadersView::explanation() const {
    return QStringLiteral(
        "Some configurations (like reverse proxies with additional authentication) may require Ledgerfinch to send "
        "additional headers to your instance.\nHere you can configure headers that will be sent with every request "
        "Ledgerfinch makes to your server:");
}

QString CustomHeadersView::note() const {
    return QStringLiteral("The header field \"Authorization\" can not be changed, as it is used by Paperless to "
                          "authenticate users.");
}

void CustomHeadersView::setConfiguredHeaders(CustomHeaders headers) {
    beginResetModel();
    m_configured = std::move(headers);
    endResetModel();
    emit configuredHeadersChanged();
}

int CustomHeadersView::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : count();
}

QVariant CustomHeadersView::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= count()) return {};
    const auto& entry = m_configured.headers[static_cast<std::size_t>(index.row())].second;
    if (role == HeaderRole) return QString::fromStdString(entry.header);
    if (role == ValueRole) return QString::fromStdString(entry.value);
    return {};
}

bool CustomHeadersView::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || index.row() >= count() || (role != HeaderRole && role != ValueRole)) return false;
    auto& entry = m_configured.headers[static_cast<std::size_t>(index.row())].second;
    (role == HeaderRole ? entry.header : entry.value) = value.toString().toStdString();
    emit dataChanged(index, index, {role});
    emit configuredHeadersChanged();
    return true;
}

Qt::ItemFlags CustomHeadersView::flags(const QModelIndex& index) const {
    return QAbstractListModel::flags(index) | Qt::ItemIsEditable;
}

QHash<int, QByteArray> CustomHeadersView::roleNames() const {
    return {{HeaderRole, "header"}, {ValueRole, "value"}};
}

void CustomHeadersView::add() {
    beginInsertRows({}, count(), count());
    m_configured.headers.emplace_back(Uuid::random(), CustomHeader{});
    endInsertRows();
    emit configuredHeadersChanged();
}

void CustomHeadersView::remove(int row) {
    if (row < 0 || row >= count()) return;
    beginRemoveRows({}, row, row);
    m_configured.headers.erase(m_configured.headers.begin() + row);
    endRemoveRows();
    emit configuredHeadersChanged();
}

void CustomHeadersView::setHeader(int row, const QString& name) {
    setData(index(row), name, HeaderRole);
}

void CustomHeadersView::setValue(int row, const QString& value) {
    setData(index(row), value, ValueRole);
}

void CustomHeadersView::save() {
    emit dismissed();
}

void CustomHeadersView::discard() {
    setConfiguredHeaders({});
    emit dismissed();
}

} // namespace ledgerfinch

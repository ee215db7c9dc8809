// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/CustomHeaders.h"

#include <QAbstractListModel>

namespace ledgerfinch {

/// The editor of the headers that go with every request to one server: a list of rows with the roles "header" and
/// "value", edited in place. Main thread.
class CustomHeadersView : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(QString explanation READ explanation CONSTANT)
    Q_PROPERTY(QString note READ note CONSTANT)
    Q_PROPERTY(int count READ count NOTIFY configuredHeadersChanged)

public:
    enum Role { HeaderRole = Qt::UserRole + 1, ValueRole };

    using QAbstractListModel::QAbstractListModel;

    [[nodiscard]] QString explanation() const;
    [[nodiscard]] QString note() const;
    [[nodiscard]] int count() const { return static_cast<int>(m_configured.headers.size()); }
    [[nodiscard]] const CustomHeaders& configuredHeaders() const { return m_configured; }
    void setConfiguredHeaders(CustomHeaders headers);

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

    /// Adds an empty row.
    Q_INVOKABLE void add();
    Q_INVOKABLE void remove(int row);
    Q_INVOKABLE void setHeader(int row, const QString& name);
    Q_INVOKABLE void setValue(int row, const QString& value);
    /// The rows are edited in place, so there is nothing left to do but go.
    Q_INVOKABLE void save();
    /// Drops every header, not only the latest edits.
    Q_INVOKABLE void discard();

signals:
    void configuredHeadersChanged();
    void dismissed();

private:
    CustomHeaders m_configured;
};

} // namespace ledgerfinch

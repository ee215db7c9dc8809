// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/HttpState.h"
#include "platform/Inflater.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QUrl>

#include <functional>

namespace ledgerfinch {

/// One request on the network thread, from its first byte to its answer, redirects included.
class HttpExchange final : public QObject {
public:
    using Finished = std::function<void(HttpExchange&)>;

    HttpExchange(QNetworkAccessManager& manager, std::shared_ptr<PendingResponse::State> state, QUrl url,
                 Finished finished);
    ~HttpExchange() override;

    void send();
    void cancel();
    [[nodiscard]] const std::shared_ptr<PendingResponse::State>& state() const { return m_state; }

private:
    enum class Ending { Natural, Cancelled, TooLarge, Broken };

    [[nodiscard]] QNetworkRequest networkRequest() const;
    QNetworkReply* dispatch(const QNetworkRequest& request);
    void receiveHead();
    void receiveBody();
    void appendPlain(std::int64_t available);
    void appendPacked();
    void conclude();
    /// Where the answer sends on to, empty when nowhere.
    [[nodiscard]] QUrl redirectTarget(int status) const;
    [[nodiscard]] bool mayFollow(const QUrl& target) const;
    [[nodiscard]] std::optional<TransportError> transportError(int status) const;
    [[nodiscard]] bool isCutOff(int status) const;
    [[nodiscard]] std::string describe() const;
    void endEarly(Ending ending);
    void finish(HttpResponse response);

    QNetworkAccessManager& m_manager;
    std::shared_ptr<PendingResponse::State> m_state;
    QUrl m_url;
    Finished m_finished;
    QNetworkReply* m_reply = nullptr;
    Ending m_ending = Ending::Natural;
    int m_redirects = 0;
    std::int64_t m_announcedLength = -1; ///< of the body on the wire; -1 unknown
    std::int64_t m_receivedLength = 0;
    std::unique_ptr<Inflater> m_inflater; ///< of a packed body
    std::string m_body;
    std::string m_tlsRefusal;
};

} // namespace ledgerfinch

// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Fetch.h"
#include "connection/Instances.h"
#include "platform/DispatchQueue.h"
#include "platform/LogSinks.h"
#include "platform/TemporaryFolder.h"
#include "store/CoreDataHandler.h"
#include "support/PaperlessServer.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::test {

using support::Fault;
using support::Json;
using support::LoggedRequest;
using support::PaperlessServer;

/// A clock that stands.
class StandingClock final : public Clock {
public:
    [[nodiscard]] Timestamp now() const override { return time; }
    Timestamp time = *dates::parseWholeSecond("2026-11-22T12:00:00Z");
};

/// One machine with a store, and one sample server.
class ConnectionTest : public ::testing::Test {
protected:
    ConnectionTest();
    ~ConnectionTest() override;

    /// A handler with the user's token. The user's id is known already, so that making it asks nothing.
    std::shared_ptr<ApiHandler> handlerFor(const std::string& user = "admin");
    /// Merges into the background context.
    [[nodiscard]] FetchOptions options() const;
    /// Everything, in the order of a sync.
    void mirror(ApiHandler& api);
    /// The only request that begins so; fails the test when there are none or several.
    LoggedRequest onlyRequest(std::string_view start);
    /// Runs in the background context's queue.
    void inStore(const std::function<void(ManagedObjectContext&)>& work);
    template <class T>
    std::vector<std::int64_t> localIds() {
        std::vector<std::int64_t> ids;
        inStore([&](ManagedObjectContext& context) {
            const auto found = context.fetch<T>(FetchRequest{});
            ASSERT_TRUE(found.ok());
            for (const auto& object : found.value())
                ids.push_back(object->id());
        });
        return ids;
    }
    /// What the log and the settings file hold, in one text.
    [[nodiscard]] std::string everythingWritten() const;

    TemporaryFolder folder;
    std::shared_ptr<MemoryLogSink> log = std::make_shared<MemoryLogSink>();
    Services services;
    MemorySecretStore* secrets = nullptr; ///< of the services
    StandingClock* clock = nullptr;       ///< of the services
    std::unique_ptr<CoreDataHandler> core;
    PaperlessServer server;
};

/// The names of a JSON object's members, in order.
std::vector<std::string> keysOf(const std::string& body);

} // namespace ledgerfinch::test

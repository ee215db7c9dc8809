// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/UserDefaults.h"

#include "platform/PosixFile.h"
#include "platform/SettingsFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <vector>

namespace ledgerfinch {

namespace {

constexpr std::int64_t kLargestFile = 16 * 1024 * 1024;

using ChangedKeys = std::set<std::string, std::less<>>;

/// What tells two states of the file apart. The file that was read stays open, so its inode isn't given away to its
/// successor while we compare.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0;

    static FileIdentity of(const struct stat& status) {
        return {status.st_dev, status.st_ino, status.st_size,
                status.st_mtim.tv_sec * std::int64_t{1'000'000'000} + status.st_mtim.tv_nsec};
    }
    bool operator==(const FileIdentity&) const = default;
};

/// The callbacks. Outlives the settings as long as somebody calls back.
class Observers {
public:
    using Callback = std::function<void(std::string_view)>;

    int add(Callback callback) {
        const std::lock_guard lock(m_mutex);
        m_observers.emplace(++m_lastId, std::make_shared<Observer>(std::move(callback)));
        return m_lastId;
    }

    void remove(int id) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_observers.find(id);
        if (found == m_observers.end()) return;
        found->second->active = false;
        m_observers.erase(found);
    }

    void notify(const ChangedKeys& keys) {
        if (keys.empty()) return;
        std::vector<std::shared_ptr<Observer>> observers;
        {
            const std::lock_guard lock(m_mutex);
            for (const auto& [id, observer] : m_observers)
                observers.push_back(observer);
        }
        for (const auto& key : keys) {
            for (const auto& observer : observers) {
                if (observer->active) observer->callback(key);
            }
        }
    }

private:
    struct Observer {
        explicit Observer(Callback function) : callback(std::move(function)) {}
        Callback callback;
        std::atomic<bool> active{true};
    };

    std::mutex m_mutex;
    int m_lastId = 0;
    std::map<int, std::shared_ptr<Observer>> m_observers;
};

void addDifferences(ChangedKeys& changed, const SettingsFile& before, const SettingsFile& after) {
    for (const auto& [key, value] : before.values()) {
        const auto found = after.values().find(key);
        if (found == after.values().end() || found->second != value) changed.insert(key);
    }
    for (const auto& [key, value] : after.values()) {
        if (!before.values().contains(key)) changed.insert(key);
    }
}

} // namespace

struct UserDefaults::Private {
    std::mutex mutex;
    std::filesystem::path path;
    SettingsFile file;
    posix::File opened;
    std::optional<FileIdentity> identity;
    /// Values whose write failed: they hold for this process.
    std::map<std::string, std::optional<SettingValue>, std::less<>> unsaved;
    std::shared_ptr<Observers> observers = std::make_shared<Observers>();

    [[nodiscard]] std::filesystem::path lockPath() const { return path.string() + ".lock"; }

    [[nodiscard]] std::optional<SettingValue> valueInFile(std::string_view key) const {
        const auto found = file.values().find(key);
        if (found == file.values().end()) return std::nullopt;
        return found->second;
    }

    [[nodiscard]] std::optional<SettingValue> value(std::string_view key) const {
        if (const auto found = unsaved.find(key); found != unsaved.end()) return found->second;
        return valueInFile(key);
    }

    /// Reads the file when it isn't the one read last. When it can't be read, the last state stays.
    Result<void> refresh(ChangedKeys& changed) {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) {
            if (errno != ENOENT) return posix::systemError("Couldn't read", path, errno);
            if (identity) take(SettingsFile(), changed);
            identity.reset();
            return {};
        }
        if (identity == FileIdentity::of(status)) return {};
        auto fresh = posix::openForReading(path);
        if (!fresh) return fresh.error();
        // Of the open file, not of the name, which may have moved on since.
        if (::fstat(fresh->descriptor(), &status) != 0) return posix::systemError("Couldn't read", path, errno);
        const auto text = posix::readAll(*fresh, path, kLargestFile);
        if (!text) return text.error();
        take(SettingsFile::parse(*text), changed);
        identity = FileIdentity::of(status);
        opened = std::move(*fresh);
        return {};
    }

    void take(SettingsFile next, ChangedKeys& changed) {
        ChangedKeys differing;
        addDifferences(differing, file, next);
        for (const auto& key : differing) {
            if (!unsaved.contains(key)) changed.insert(key);
        }
        file = std::move(next);
    }

    Result<void> write(std::string_view key, const std::optional<SettingValue>& newValue, ChangedKeys& changed) {
        const auto lock = posix::openLocked(lockPath(), true);
        if (!lock) return lock.error();
        if (auto refreshed = refresh(changed); !refreshed) return refreshed;
        auto next = file;
        next.set(key, newValue);
        if (auto written = posix::replaceFile(path, next.text()); !written) return written;
        unsaved.erase(std::string(key));
        return refresh(changed);
    }

    /// Everything of a write but the callbacks.
    Result<void> change(std::string_view key, const std::optional<SettingValue>& newValue, ChangedKeys& changed) {
        const std::lock_guard guard(mutex);
        const auto current = refresh(changed);
        const auto before = value(key);
        if (current.ok() && valueInFile(key) == newValue) {
            // Nothing to write, even after a write that failed: so what is put back holds on a full disk too.
            unsaved.erase(std::string(key));
            if (before != newValue) changed.insert(std::string(key));
            return {};
        }
        auto written = write(key, newValue, changed);
        if (!written) unsaved.insert_or_assign(std::string(key), newValue);
        if (before != newValue) changed.insert(std::string(key));
        return written;
    }

    Result<void> changeAndNotify(std::string_view key, const std::optional<SettingValue>& newValue) {
        ChangedKeys changed;
        auto result = change(key, newValue, changed);
        const auto keepAlive = observers;
        keepAlive->notify(changed);
        return result;
    }

    std::optional<SettingValue> current(std::string_view key) {
        ChangedKeys changed;
        std::optional<SettingValue> result;
        {
            const std::lock_guard guard(mutex);
            (void)refresh(changed);
            result = value(key);
        }
        const auto keepAlive = observers;
        keepAlive->notify(changed);
        return result;
    }

    template <class T>
    std::optional<T> currentOf(std::string_view key) {
        auto found = current(key);
        if (!found) return std::nullopt;
        if (auto* wanted = std::get_if<T>(&*found)) return std::move(*wanted);
        return std::nullopt;
    }
};

UserDefaults::UserDefaults(std::unique_ptr<Private> d) : m_d(std::move(d)) {}

UserDefaults::~UserDefaults() = default;

Result<std::unique_ptr<UserDefaults>> UserDefaults::open(std::filesystem::path file) {
    std::error_code error;
    // A settings file kept elsewhere by a link stays there.
    if (std::filesystem::is_symlink(file, error)) {
        if (auto target = std::filesystem::weakly_canonical(file, error); !error) file = std::move(target);
    }
    auto d = std::make_unique<Private>();
    d->path = std::move(file);
    if (d->path.has_parent_path()) {
        if (auto made = posix::createFolders(d->path.parent_path()); !made) return made.error();
    }
    ChangedKeys changed;
    if (auto read = d->refresh(changed); !read) return read.error();
    if (!d->identity) {
        const auto lock = posix::openLocked(d->lockPath(), true);
        if (!lock) return lock.error();
        if (auto read = d->refresh(changed); !read) return read.error();
        if (!d->identity) {
            if (auto created = posix::replaceFile(d->path, SettingsFile().text()); !created) return created.error();
            if (auto read = d->refresh(changed); !read) return read.error();
        }
    }
    return std::unique_ptr<UserDefaults>(new UserDefaults(std::move(d)));
}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    return m_d->currentOf<std::string>(key);
}

std::optional<bool> UserDefaults::boolean(std::string_view key) const {
    return m_d->currentOf<bool>(key);
}

std::optional<std::int64_t> UserDefaults::integer(std::string_view key) const {
    return m_d->currentOf<std::int64_t>(key);
}

Result<void> UserDefaults::set(std::string_view key, std::string_view value) {
    return m_d->changeAndNotify(key, SettingValue(std::string(value)));
}

Result<void> UserDefaults::set(std::string_view key, bool value) {
    return m_d->changeAndNotify(key, SettingValue(value));
}

Result<void> UserDefaults::set(std::string_view key, std::int64_t value) {
    return m_d->changeAndNotify(key, SettingValue(value));
}

Result<void> UserDefaults::remove(std::string_view key) {
    return m_d->changeAndNotify(key, std::nullopt);
}

Subscription UserDefaults::onChange(std::function<void(std::string_view key)> callback) {
    const int id = m_d->observers->add(std::move(callback));
    return Subscription([weak = std::weak_ptr(m_d->observers), id] {
        if (const auto observers = weak.lock()) observers->remove(id);
    });
}

void UserDefaults::reload() {
    ChangedKeys changed;
    {
        const std::lock_guard guard(m_d->mutex);
        (void)m_d->refresh(changed);
    }
    const auto keepAlive = m_d->observers;
    keepAlive->notify(changed);
}

} // namespace ledgerfinch

#include <android/log.h>
#include <binder/transport/binder_process.h>
#include <binder/transport/service_directory.h>
#include <fcntl.h>
#include <sim/base/unix_socket.h>
#include <sim/phone.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace android::transport {

namespace {

void logFailure(const char* what, const std::string& name) {
    __android_log_print(ANDROID_LOG_ERROR, "Binder", "%s %s: %s", what, name.c_str(),
                        strerror(errno));
}

}  // namespace

bool ServiceDirectory::validName(const std::string& name) {
    constexpr size_t kMaxNameLength = 64;
    if (name.empty() || name.size() > kMaxNameLength || name[0] == '.') return false;
    for (const char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
        if (!plain) return false;
    }
    return true;
}

bool ServiceDirectory::openFolderLocked() {
    if (mFolder.valid()) return true;
    const std::string folder = sim::Phone::get().runDir() + "/services";
    mkdir(folder.c_str(), 0700);
    mFolder = sim::Fd(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!mFolder.valid()) logFailure("open", folder);
    return mFolder.valid();
}

status_t ServiceDirectory::publish(const std::string& name, const sp<IBinder>& service) {
    if (!validName(name) || service == nullptr) return BAD_VALUE;
    if (service->localBinder() == nullptr) return BAD_TYPE;
    Mutex::Autolock lock(mLock);
    if (mWithdrawn) return INVALID_OPERATION;
    if (!openFolderLocked()) return NO_INIT;
    sim::PublishedSocket socket;
    const int error = sim::publishSocket(mFolder, name, SOCK_STREAM, socket);
    if (error == EWOULDBLOCK) return ALREADY_EXISTS;
    if (error != 0) {
        errno = error;
        logFailure("publish", name);
        return NO_INIT;
    }
    Published published;
    published.held = std::move(socket.lock);
    published.service = service;
    published.listener = std::make_shared<Listener>(mProcess, std::move(socket.listening), name,
                                                    sp<BBinder>(service->localBinder()));
    if (!published.listener->open()) {
        unlinkat(mFolder.get(), name.c_str(), 0);
        return NO_INIT;
    }
    mPublished.emplace(name, std::move(published));
    return OK;
}

void ServiceDirectory::withdrawAll() {
    std::map<std::string, Published> withdrawn;  // its objects are released without the lock
    Mutex::Autolock lock(mLock);
    mWithdrawn = true;
    withdrawn.swap(mPublished);
    for (const auto& entry : withdrawn) {
        unlinkat(mFolder.get(), entry.first.c_str(), 0);
        entry.second.listener->close();
    }
}

sp<IBinder> ServiceDirectory::own(const std::string& name) {
    Mutex::Autolock lock(mLock);
    const auto entry = mPublished.find(name);
    return entry != mPublished.end() ? entry->second.service : nullptr;
}

sp<IBinder> ServiceDirectory::connect(const std::string& name) {
    if (!validName(name)) return nullptr;
    std::shared_ptr<Connection> connection;
    {
        Mutex::Autolock lock(mLock);
        Place place;
        if (!openFolderLocked() || !findLocked(name, &place)) return nullptr;
        Connected& known = mConnections[name];
        const bool usable = known.connection != nullptr && known.connection->alive();
        if (!usable || !(known.place == place)) known = {place, connectLocked(name)};
        connection = known.connection;
    }
    return connection != nullptr ? connection->root() : nullptr;
}

bool ServiceDirectory::findLocked(const std::string& name, Place* place) {
    struct stat found;
    if (fstatat(mFolder.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) return false;
    *place = {found.st_ino, found.st_ctim};
    return true;
}

std::shared_ptr<Connection> ServiceDirectory::connectLocked(const std::string& name) {
    sim::Fd socket = sim::connectSocket(mFolder, name, SOCK_STREAM | SOCK_NONBLOCK);
    const auto peer = socket.valid() ? sim::peerOf(socket.get()) : std::nullopt;
    if (!peer && errno == EAGAIN) {  // too many clients wait to be let in
        auto refused = std::make_shared<Connection>(mProcess, sim::Fd(), ucred{}, nullptr);
        refused->refuse();
        return refused;
    }
    if (!peer) {
        // No log line when nobody publishes the name, or its publisher is dead.
        if (errno != ENOENT && errno != ECONNREFUSED) logFailure("connect", name);
        return nullptr;
    }
    if (!mayTalkTo(*peer, name)) return nullptr;
    auto connection = std::make_shared<Connection>(mProcess, std::move(socket), *peer, nullptr);
    return connection->open() ? connection : nullptr;
}

}  // namespace android::transport

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <compositor/compositor.h>
#include <sim/control/server.h>
#include <sim/phone.h>

namespace android {

namespace {

constexpr char kName[] = "SurfaceFlinger";
constexpr char kDescriptor[] = "android.ui.ISurfaceComposer";

sim::Reply listNotices(Compositor& compositor) {
    sim::Reply reply{true, {}};
    for (const Compositor::Notice& notice : compositor.notices())
        reply.texts.push_back(std::to_string(notice.eventId) + " " + notice.info.c_str());
    return reply;
}

}  // namespace

status_t Compositor::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code != kDisplayNotice) return BBinder::onTransact(code, data, reply, flags);
    if (!data.enforceInterface(String16(kDescriptor))) return PERMISSION_DENIED;
    Notice notice{};
    const status_t status = data.readInt32(&notice.eventId);
    if (status != OK) return status;
    const status_t infoStatus = data.readString8(&notice.info);
    if (infoStatus != OK) return infoStatus;
    Mutex::Autolock lock(mLock);
    mNotices.push_back(notice);
    if (mNotices.size() > kMaxNotices) mNotices.pop_front();
    return OK;
}

std::vector<Compositor::Notice> Compositor::notices() {
    Mutex::Autolock lock(mLock);
    return {mNotices.begin(), mNotices.end()};
}

sp<Compositor> startCompositor() {
    const sp<Compositor> compositor = new Compositor;
    if (defaultServiceManager()->addService(String16(kName), compositor) != OK) return nullptr;
    sim::Phone::get().control().add("compositor",
                                    [compositor](const auto&) { return listNotices(*compositor); });
    return compositor;
}

}  // namespace android

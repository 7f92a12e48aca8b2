#include <binder/IServiceManager.h>
#include <binder/transport/binder_process.h>
#include <utils/String8.h>

#include <string>

namespace android {

namespace {

std::string plain(const String16& name) {
    return String8(name).c_str();
}

class ServiceManager : public IServiceManager {
  public:
    sp<IBinder> getService(const String16& name) const override { return checkService(name); }

    sp<IBinder> checkService(const String16& name) const override {
        const sp<IBinder> own = directory().own(plain(name));
        return own != nullptr ? own : directory().connect(plain(name));
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                        int /*dumpFlags*/) override {
        return directory().publish(plain(name), service);
    }

  private:
    static transport::ServiceDirectory& directory() { return transport::Process::get().services(); }
};

}  // namespace

sp<IServiceManager> defaultServiceManager() {
    static const sp<IServiceManager>& manager = *new sp<IServiceManager>(new ServiceManager());
    return manager;
}

}  // namespace android

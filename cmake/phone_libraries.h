// Declares what the product and its host may use of the phone's libraries, and nothing else. The
// phone check offers this one file to them under the names of all the headers that it lists, each
// before its part. Programs that define PELTO_CLIENT get what clients of the service use as well.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

// <utils/Errors.h>

namespace android {

typedef int32_t status_t;

enum { OK = 0, NO_INIT = -19 };

// <utils/RefBase.h>

class RefBase {
  public:
    class weakref_type {
      public:
        void incWeak(const void* id);
        void decWeak(const void* id);
    };
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    weakref_type* getWeakRefs() const;

  protected:
    enum { OBJECT_LIFETIME_WEAK = 1 };
    RefBase();
    virtual ~RefBase();
    void extendObjectLifetime(int mode);
    virtual void onFirstRef();
    virtual void onLastStrongRef(const void* id);
};

template <typename T>
class sp {
  public:
    sp();
    sp(std::nullptr_t);
    sp(T* other);
    sp(const sp& other);
    template <typename U>
    sp(const sp<U>& other);
    ~sp();
    sp& operator=(const sp& other);
    void clear();
    T& operator*() const;
    T* operator->() const;
    T* get() const;
    template <typename U>
    bool operator==(const sp<U>& other) const;
    bool operator==(std::nullptr_t) const;
    bool operator!=(std::nullptr_t) const;
    bool operator<(const sp& other) const;
};

template <typename T>
class wp {
  public:
    wp(const wp& other);
    ~wp();
    sp<T> promote() const;
};

// <utils/String8.h>

class String8 {
  public:
    String8();
    String8(const String8& other);
    explicit String8(const char* text);
    String8(const char* text, size_t length);
    ~String8();
    String8& operator=(const String8& other);
    const char* c_str() const;
    size_t length() const;
    bool isEmpty() const;
    int append(const char* text);
    int append(const String8& other);
    int appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
    static String8 format(const char* format, ...) __attribute__((format(printf, 1, 2)));
    bool operator==(const String8& other) const;
    String8 operator+(const String8& other) const;
};

// <utils/String16.h>

class String16 {
  public:
    explicit String16(const char* utf8);
    ~String16();
};

// <utils/Vector.h>

template <typename T>
class Vector {
  public:
    Vector();
    ~Vector();
    size_t size() const;
    bool isEmpty() const;
    void clear();
    const T& operator[](size_t index) const;
    T& editItemAt(size_t index);
    ssize_t add(const T& item);
    void push(const T& item);
};

// <utils/SortedVector.h>

template <typename T>
class SortedVector {
  public:
    SortedVector();
    ~SortedVector();
    size_t size() const;
    const T& operator[](size_t index) const;
    ssize_t indexOf(const T& item) const;
    ssize_t add(const T& item);
};

// <utils/Mutex.h>

class Mutex {
  public:
    Mutex();
    ~Mutex();
    int lock();
    void unlock();
    int tryLock();

    class Autolock {
      public:
        explicit Autolock(Mutex& mutex);
        ~Autolock();
    };
};

// <utils/Singleton.h>

template <typename T>
class Singleton {
  public:
    static T& getInstance();

  protected:
    Singleton();
    ~Singleton();

  private:
    static Mutex sLock;
    static T* sInstance;
};

#define ANDROID_SINGLETON_STATIC_INSTANCE(TYPE) \
    template <>                                 \
    Mutex Singleton<TYPE>::sLock{};             \
    template <>                                 \
    TYPE* Singleton<TYPE>::sInstance = nullptr;

// <utils/Thread.h>

class Thread : virtual public RefBase {
  public:
    explicit Thread(bool canCallJava = true);
    virtual ~Thread();
    virtual status_t run(const char* name, int32_t priority = 0, size_t stack = 0);
    virtual void requestExit();
    virtual status_t readyToRun();
    status_t requestExitAndWait();
    bool isRunning() const;

  protected:
    bool exitPending() const;

  private:
    virtual bool threadLoop() = 0;
};

}  // namespace android

// <utils/Timers.h>

enum { SYSTEM_TIME_MONOTONIC = 1 };

int64_t systemTime(int clock);
int toMillisecondTimeoutDelay(int64_t referenceTime, int64_t timeoutTime);

// <utils/SystemClock.h>

namespace android {

int64_t elapsedRealtime();

}  // namespace android

// <android/log.h>

enum {
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
};

extern "C" {
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void __android_log_assert(const char* condition, const char* tag, const char* format, ...)
    __attribute__((noreturn, format(printf, 3, 4)));
}

// <cutils/properties.h>

extern "C" {
int property_get(const char* key, char* value, const char* defaultValue);
int property_set(const char* key, const char* value);
}

// <android-base/properties.h>

namespace android {
namespace base {

bool GetBoolProperty(const std::string& key, bool defaultValue);
bool SetProperty(const std::string& key, const std::string& value);

}  // namespace base
// <binder/IBinder.h>

class Parcel;

class IBinder : public virtual RefBase {
  public:
    class DeathRecipient : public virtual RefBase {
      public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;
#ifdef PELTO_CLIENT
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0);
    status_t pingBinder();
#endif
};

class BBinder : public IBinder {
  public:
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

  protected:
    ~BBinder() override;
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);
};

class IInterface : public virtual RefBase {};

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {};

// <binder/Parcel.h>

class Parcel {
  public:
    Parcel();
    ~Parcel();
    status_t writeInterfaceToken(const String16& interface);
    status_t writeInt32(int32_t value);
    status_t writeString8(const String8& text);
};

// <binder/IServiceManager.h>

class IServiceManager : public virtual RefBase {
  public:
    virtual sp<IBinder> getService(const String16& name) const = 0;
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false, int dumpFlags = 0) = 0;
};

sp<IServiceManager> defaultServiceManager();

// <binder/ProcessState.h>

class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();
    void startThreadPool();
};

// <binder/IPCThreadState.h>

class IPCThreadState {
  public:
    static IPCThreadState* self();
    void joinThreadPool(bool isMain = true);
};

#ifdef PELTO_CLIENT
template <typename INTERFACE>
sp<INTERFACE> interface_cast(const sp<IBinder>& object);
#endif

// <ipeltoservice/IPeltoNativeClient.h>

class IPeltoNativeClient : public IInterface {
  public:
    virtual status_t onNativeEvent(const char* type, const char* info) = 0;
};

#ifdef PELTO_CLIENT
class BnPeltoNativeClient : public BnInterface<IPeltoNativeClient> {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;
};
#endif

// <ipeltoservice/IPeltoService.h>

constexpr const char* kPeltoServiceName = "peltoservice";

class IPeltoService : public IInterface {
  public:
    virtual status_t registerNativeClient(const sp<IPeltoNativeClient>& client) = 0;
    virtual void notifyVideoStutter(const String8& detector, int frameGap) = 0;
    virtual void updateSFStateFlag(bool state) = 0;
    virtual void updateTopActivity(int64_t minIntervalMillis) = 0;
    virtual void setEvent(const String8& type, const String8& info) = 0;
    virtual void setEventToNative(const String8& type, const String8& info) = 0;
    virtual void setDebugLog(bool on) = 0;
};

class BnPeltoService : public BnInterface<IPeltoService> {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;
};

// <ipeltoservice/PeltoEventUploadUtils.h>

class PeltoEventUploadUtils : public Singleton<PeltoEventUploadUtils> {
  public:
    void setEvent(const String8& type, const String8& info);
};

// <kelvo_multimedia_kernel_event/DisplayKevent.h>

struct mm_kevent_packet;

class DisplayKevent : public virtual RefBase {
  public:
    DisplayKevent(void* owner, const char* channel, bool (*handler)(void*, mm_kevent_packet*));
    status_t run(const char* name, int32_t priority, size_t stack);
};

}  // namespace android

// <wex/wex_exception.h>

struct wex_exception_info {
    int64_t exceptionTime;
    uint32_t exceptionId;
    uint8_t reserved[12];
    uint64_t atomicLogs;
    char logName[256];
};

extern "C" int wex_raise_exception(const wex_exception_info* info);

// <kstatslog/kstatslog.h>

namespace KelvoFramework {

int stats_write(int32_t code, int32_t eventId, const char* event, const char* kind,
                int64_t wallMillis, int32_t result, int32_t count, const char* source);

}  // namespace KelvoFramework

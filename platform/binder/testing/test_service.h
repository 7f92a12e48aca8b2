// An object for tests with an operation for everything that can travel, and a latch.
#pragma once

#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace android::binder_test {

constexpr std::chrono::seconds kPatience{30};  // a deadline that only fails

// Opens once; those who wait for it give up after kPatience.
class Latch {
  public:
    void open() {
        const std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mOpened.notify_all();
    }
    bool wait() {
        std::unique_lock<std::mutex> lock(mMutex);
        return mOpened.wait_for(lock, kPatience, [this] { return mOpen; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mOpened;
    bool mOpen = false;
};

// Notes that it is gone.
class Child : public BBinder {
  public:
    explicit Child(Latch* gone) : mGone(gone) {}
    ~Child() override { mGone->open(); }

  private:
    Latch* const mGone;
};

class Watcher : public IBinder::DeathRecipient {
  public:
    void binderDied(const wp<IBinder>& who) override {
        died = who;
        ++times;
        told.open();
    }
    wp<IBinder> died;
    int times = 0;
    Latch told;
};

class TestService : public BBinder {
  public:
    enum : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION,  // bytes: the same bytes
        NOTE,                           // int32: kept in notes
        COUNT,                          // none: int32, how many notes
        KEEP,                           // object: kept; object, the same; true when it was kept
        CALL_BACK,                      // object, text: what the object's ECHO answers
        WAIT,                           // none, once released: the caller's pid
    };

    const String16& getInterfaceDescriptor() const override {
        static const String16& name = *new String16("pelto.test");
        return name;
    }

    bool waitForNotes(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mNoted.wait_for(lock, kPatience, [&] { return mNotes.size() >= count; });
    }
    std::vector<int32_t> notes() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mNotes;
    }
    sp<IBinder> kept() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mKept;
    }
    void drop() {
        const sp<IBinder> last = kept();
        const std::lock_guard<std::mutex> lock(mMutex);
        mKept = nullptr;
    }

    Latch entered, released;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        switch (code) {
            case ECHO:
                return reply->write(data.data(), data.dataSize());
            case NOTE:
                return note(data.readInt32());
            case COUNT:
                return reply->writeInt32(static_cast<int32_t>(notes().size()));
            case KEEP:
                return keep(data, reply);
            case CALL_BACK:
                return callBack(data, reply);
            case WAIT:
                entered.open();
                released.wait();
                return reply->writeInt32(IPCThreadState::self()->getCallingPid());
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

  private:
    status_t note(int32_t number) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mNotes.push_back(number);
        mNoted.notify_all();
        return OK;
    }

    status_t keep(const Parcel& data, Parcel* reply) {
        sp<IBinder> object;
        const status_t status = data.readStrongBinder(&object);
        if (status != OK) return status;
        const sp<IBinder> before = kept();
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mKept = object;
        }
        reply->writeStrongBinder(object);
        return reply->writeBool(object == before);
    }

    static status_t callBack(const Parcel& data, Parcel* reply) {
        Parcel forward, answer;
        const sp<IBinder> object = data.readStrongBinder();
        if (object == nullptr) return BAD_VALUE;
        forward.writeString8(data.readString8());
        const status_t status = object->transact(ECHO, forward, &answer);
        return status == OK ? reply->writeString8(answer.readString8()) : status;
    }

    std::mutex mMutex;
    std::condition_variable mNoted;
    std::vector<int32_t> mNotes;
    sp<IBinder> mKept;
};

inline status_t note(const sp<IBinder>& object, int32_t number, size_t padding = 0) {
    Parcel data;
    data.writeInt32(number);
    data.writeInplace(padding);
    return object->transact(TestService::NOTE, data, nullptr, IBinder::FLAG_ONEWAY);
}

inline status_t echo(const sp<IBinder>& object, const String8& text, String8* answer) {
    Parcel data, reply;
    data.writeString8(text);
    const status_t status = object->transact(TestService::ECHO, data, &reply);
    *answer = reply.readString8();
    return status;
}

}  // namespace android::binder_test

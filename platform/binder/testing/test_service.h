// The object that the binder tests call: an operation for each kind of argument, and a latch.
#pragma once

#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>

namespace android::binder_test {

constexpr std::chrono::seconds kTimeout{30};  // a deadline that only fails

// A one-shot event; wait() gives up after kTimeout.
class Latch {
  public:
    void open() { mOpen.set_value(); }
    bool wait() { return mOpened.wait_for(kTimeout) == std::future_status::ready; }

  private:
    std::promise<void> mOpen;
    const std::shared_future<void> mOpened = mOpen.get_future().share();
};

class Watcher : public IBinder::DeathRecipient {
  public:
    void binderDied(const wp<IBinder>& who) override {
        died = who;
        told.open();  // fails the second time
    }
    wp<IBinder> died;
    Latch told;
};

class TestService : public BBinder {
  public:
    enum : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION,  // bytes: the same bytes
        NOTE,                           // int32: counted, and its order checked
        KEEP,                           // object to keep: the object
        CALL_BACK,                      // object, text: the answer of the object's ECHO
        WAIT,                           // none; answers the caller's pid once released
    };

    // Waits for `count` notes; whether they came in time and in the order 0, 1, 2...
    bool noted(int32_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kTimeout, [&] { return mNotes >= count; }) && mInOrder;
    }
    int32_t notes() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mNotes;
    }
    sp<IBinder> kept() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mKept;
    }
    // Replaces the kept object and returns the old one.
    sp<IBinder> keep(sp<IBinder> object) {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::swap(mKept, object);
        return object;
    }

    Latch entered, released;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        switch (code) {
            case ECHO:
                return reply->write(data.data(), data.dataSize());
            case NOTE:
                return note(data.readInt32());
            case KEEP:
                keep(data.readStrongBinder());
                return reply->writeStrongBinder(kept());
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
        mInOrder = mInOrder && number == mNotes;
        ++mNotes;
        mChanged.notify_all();
        return OK;
    }

    static status_t callBack(const Parcel& data, Parcel* reply) {
        Parcel forward;
        const sp<IBinder> object = data.readStrongBinder();
        forward.writeString8(data.readString8());
        return object->transact(ECHO, forward, reply);
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    int32_t mNotes = 0;
    bool mInOrder = true;
    sp<IBinder> mKept;
};

inline status_t note(const sp<IBinder>& object, int32_t number, size_t padding = 0) {
    Parcel data;
    data.writeInt32(number);
    data.writeInplace(padding);
    return object->transact(TestService::NOTE, data, nullptr, IBinder::FLAG_ONEWAY);
}

inline bool echoes(const sp<IBinder>& object, const String8& text = String8("a\0b", 3)) {
    Parcel data, reply;
    data.writeString8(text);
    return object->transact(TestService::ECHO, data, &reply) == OK && reply.readString8() == text;
}

}  // namespace android::binder_test

// The object that the binder tests call: an operation for each kind of argument, and one that
// waits.
#pragma once

#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace android::binder_test {

constexpr std::chrono::seconds kTimeout{30};  // a deadline that only fails

// Waits for an event that occurs once, and is waited for once.
inline bool wait(std::promise<void>& event) {
    return event.get_future().wait_for(kTimeout) == std::future_status::ready;
}

class Watcher : public IBinder::DeathRecipient {
  public:
    void binderDied(const wp<IBinder>& who) override {
        died = who;
        told.set_value();  // fails the second time
    }
    wp<IBinder> died;
    std::promise<void> told;
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
        const auto deadline = std::chrono::steady_clock::now() + kTimeout;
        while (notes < count && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        return notes >= count && mInOrder;
    }

    std::atomic<int32_t> notes{0};
    sp<IBinder> kept;  // a KEEP has set it before it is answered
    std::promise<void> entered, released;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        switch (code) {
            case ECHO:
                return reply->write(data.data(), data.dataSize());
            case NOTE:
                if (data.readInt32() != notes++) mInOrder = false;
                return OK;
            case KEEP:
                kept = data.readStrongBinder();
                return reply->writeStrongBinder(kept);
            case CALL_BACK: {
                Parcel forward;
                const sp<IBinder> object = data.readStrongBinder();
                forward.writeString8(data.readString8());
                return object->transact(ECHO, forward, reply);
            }
            case WAIT:
                entered.set_value();
                wait(released);
                return reply->writeInt32(IPCThreadState::self()->getCallingPid());
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

  private:
    std::atomic<bool> mInOrder{true};
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

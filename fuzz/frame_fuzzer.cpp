// Sends bytes to a published object as a client that breaks the protocol at will, and ends its
// sending. The connection ends, what it answered is well-formed, and others are served.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/transport/binder_process.h>
#include <fcntl.h>
#include <sim/base/unix_socket.h>
#include <string.h>

#include <memory>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_phone.h"

using namespace android;
using namespace android::transport;

namespace {

// Answers with what it is sent, keeps an object, and calls an object of its caller.
class Service : public BBinder {
  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t) override {
        const sp<IBinder> object = code == 1 ? nullptr : data.readStrongBinder();
        if (object == nullptr) return reply->write(data.data(), data.dataSize());
        if (code == 3) return object->transact(1, Parcel(), reply);
        return reply->writeStrongBinder(object);
    }
};

class World {
  public:
    World() {
        const std::string folder = fuzzPhone().runDir() + "/services";
        const sp<IBinder> service = sp<Service>::make();
        require(defaultServiceManager()->addService(String16("fuzz"), service) == OK, "published");
        ProcessState::self()->startThreadPool();
        mFolder = sim::Fd(open(folder.c_str(), O_PATH | O_CLOEXEC));
        mGoodClient = Process::get().services().connect("fuzz");
    }

    // Everything that the object's process answers until it ends the connection.
    std::string answersTo(bool greets, std::string_view bytes) const {
        const sim::Fd socket = sim::connectSocket(mFolder, "fuzz", SOCK_STREAM);
        require(socket.valid(), "a client gets in");
        const timeval timeout{5, 0};
        setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
        const FrameHeader hello{kMagic, 0, HELLO, 0, 0, 0, kVersion, 0, 0};
        if (greets) send(socket.get(), &hello, sizeof(hello), MSG_NOSIGNAL);
        send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        shutdown(socket.get(), SHUT_WR);
        std::string answers = sim::readAll(socket.get());
        char more;
        require(recv(socket.get(), &more, 1, MSG_DONTWAIT) == 0 || errno != EAGAIN,
                "the connection ends");
        return answers;
    }

    void checkOthersAreServed() const {
        require(mGoodClient->pingBinder() == OK, "another connection is served");
    }

  private:
    sim::Fd mFolder;
    sp<IBinder> mGoodClient;
};

// Takes frames off the front of the bytes: each is refused, cut short, or its objects lie in its
// data. Returns what is wrong with the bytes, or null.
const char* readFrames(std::string_view bytes) {
    FrameHeader header;
    while (bytes.size() >= sizeof(header)) {
        memcpy(&header, bytes.data(), sizeof(header));
        if (const char* fault = headerFault(header)) return fault;
        bytes.remove_prefix(sizeof(header));
        if (bytes.size() < header.size) return nullptr;
        // A copy of its own, so that a read past its end is seen.
        const std::unique_ptr<uint8_t[]> payload(new uint8_t[header.size]);
        memcpy(payload.get(), bytes.data(), header.size);
        Frame frame;
        if (const char* fault = parseFrame(header, payload.get(), &frame)) return fault;
        require(frame.data + frame.dataSize == payload.get() + header.size, "the data is whole");
        size_t next = 0;
        for (const ObjectEntry& object : frame.objects) {
            require(object.offset >= next, "objects ascend");
            next = object.offset + Parcel::kObjectMarkSize;
            require(next <= frame.dataSize && Parcel::isObjectMark(frame.data + object.offset),
                    "each has its mark");
        }
        bytes.remove_prefix(header.size);
    }
    return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const bool greets = (input.byte() & 1) != 0;
    const std::string_view bytes = input.rest();
    readFrames(bytes);
    static const World& world = *new World;
    const char* const fault = readFrames(world.answersTo(greets, bytes));
    require(fault == nullptr, std::string("the answers are frames: ") + (fault ? fault : ""));
    world.checkOthersAreServed();
    return 0;
}

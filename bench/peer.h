#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace bench {

// A message of the same size as the service's PeltoMessage.
struct Message {
    int32_t what;
    char text[1024];
};

using Receiver = std::function<void(const Message&)>;

// One event loop under measurement, used in its recommended way. Every message, posted from any
// thread, is received once, whole and in order, on the thread that runs the loop.
class Peer {
  public:
    explicit Peer(Receiver receiver) : receive(std::move(receiver)) {}
    virtual ~Peer() = default;

    virtual void post(const Message& message) = 0;
    // Runs the loop until quit() is called, on the loop's thread.
    virtual void run() = 0;
    virtual void quit() = 0;

    // Posts after a delay. Called on the loop's thread; not every peer has timers.
    virtual void postIn(int64_t nanos, const Message& message);

  protected:
    const Receiver receive;
};

using MakePeer = std::unique_ptr<Peer> (*)(Receiver receiver);
std::map<std::string, MakePeer>& peers();

// Registers a peer under a name.
struct Registration {
    Registration(const char* name, MakePeer make) { peers()[name] = make; }
};

template <typename P>
std::unique_ptr<Peer> make(Receiver receiver) {
    return std::make_unique<P>(std::move(receiver));
}

}  // namespace bench

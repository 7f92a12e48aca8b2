#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/mutex.h"
#include "sim/kernel/netlink_socket.h"

namespace sim {

struct GenlMessage;

// The sockets of the phone's kernel. Supports generic netlink only, so that the product cannot
// reach the workstation's network. Simulates the family controller and the audio module, whose
// family is "aud_knl_nt".
//
// Threads: any. Each socket has a thread "sim_netlink" that answers what the process sends.
// Errors: as with a real kernel, a receive reports ENOBUFS after a full queue has lost datagrams.
class GenericNetlink {
  public:
    static constexpr uint16_t kFamilyId = 28;

    // How the controller answers a look-up of the audio module's family.
    enum class Answer { kFamily, kNoFamily, kNothing };
    enum class Pushed { kQueued, kLost, kNobody };

    // As the C function of that name; another address family is refused with EAFNOSUPPORT, another
    // protocol with EPROTONOSUPPORT.
    int socket(int domain, int type, int protocol) SIM_EXCLUDES(mMutex);
    int bind(int fd, const sockaddr* address, socklen_t length) SIM_EXCLUDES(mMutex);
    // Accepts only the kernel's address (port 0).
    ssize_t sendto(int fd, std::string_view bytes, int flags, const sockaddr* address,
                   socklen_t length) SIM_EXCLUDES(mMutex);
    // To be called before each receive: false with errno set when that is to fail.
    bool mayReceive(int fd) SIM_EXCLUDES(mMutex);

    void setAnswer(Answer answer) SIM_EXCLUDES(mMutex);
    // Sends the audio module's packet to every socket that has registered with it.
    Pushed push(int32_t cmd, std::string_view text) SIM_EXCLUDES(mMutex);
    // Sends these very bytes as one datagram to every socket.
    Pushed pushRaw(std::string_view bytes) SIM_EXCLUDES(mMutex);

    // Injected results of the next sends, in order: above 0 the most bytes that are taken; below 0
    // a negated errno; 0 takes nothing and sets EAGAIN.
    void setSendResults(std::deque<ssize_t> results) SIM_EXCLUDES(mMutex);

    // The last kMaxHistory datagrams that the process sent, oldest first. The waiting form waits
    // until there are `count`; false after 30 s.
    static constexpr size_t kMaxHistory = 1000;
    std::vector<std::string> received() SIM_EXCLUDES(mMutex);
    bool waitReceived(size_t count) SIM_EXCLUDES(mMutex);
    // Waits until a socket has registered with the audio module; false after `timeout`.
    bool waitRegistered(std::chrono::seconds timeout) SIM_EXCLUDES(mMutex);

    // Makes all sockets those of the workstation's own kernel, where a look-up may load modules. To
    // be called before any socket is made.
    void useWorkstationKernel() { mWorkstation = true; }

  private:
    struct Port {
        std::shared_ptr<NetlinkSocket> socket;
        int fd;           // the process's end; the latest socket with that number has it
        uint32_t id = 0;  // 0 until bound
        bool registered = false;
    };

    void serve(const std::shared_ptr<NetlinkSocket>& socket);
    void answerAll(NetlinkSocket& socket, const std::string& datagram) SIM_EXCLUDES(mMutex);
    void answer(Port& port, const GenlMessage& message) SIM_REQUIRES(mMutex);
    int control(Port& port, const GenlMessage& message) SIM_REQUIRES(mMutex);
    int registerWithModule(Port& port, const GenlMessage& message) SIM_REQUIRES(mMutex);
    Port* find(int fd) SIM_REQUIRES(mMutex);
    Port* find(const NetlinkSocket& socket) SIM_REQUIRES(mMutex);
    bool hasRegistered() const SIM_REQUIRES(mMutex);
    bool isTaken(uint32_t id) SIM_REQUIRES(mMutex);
    uint32_t freeId() SIM_REQUIRES(mMutex);
    Pushed pushTo(bool registeredOnly, std::string_view bytes) SIM_REQUIRES(mMutex);

    std::atomic<bool> mWorkstation{false};
    Mutex mMutex;
    Condition mChanged;
    std::deque<Port> mPorts SIM_GUARDED_BY(mMutex);  // the latest first
    Answer mAnswer SIM_GUARDED_BY(mMutex) = Answer::kFamily;
    std::deque<std::string> mReceived SIM_GUARDED_BY(mMutex);
    std::deque<ssize_t> mSendResults SIM_GUARDED_BY(mMutex);
};

}  // namespace sim

// Has the service turn display records into events and compares each event with that of a simpler
// parser. An input is the id up to the first newline, then the payload.
#include <compositor/compositor.h>
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>
#include <string.h>

#include <algorithm>
#include <sstream>

#include "event/phone_integer.h"
#include "fuzz/fuzz_phone.h"
#include "service/PeltoService.h"

using namespace android;

namespace {

class Service : public PeltoService {
  public:
    void setEvent(const String8& event, const String8& info) override {
        mEvent = std::string(event.c_str()) + "$" + info.c_str();
    }
    std::string mEvent;
};

sp<Service> newService() {
    fuzzPhone();
    const sp<Service> service = new Service;
    startCompositor();
    return service;
}

// Fills the field as the channel does: cut to its size and terminated.
template <size_t kSize>
std::string fill(char (&field)[kSize], std::string_view text) {
    memcpy(field, text.data(), std::min(text.size(), kSize - 1));
    return field;
}

std::string itemOf(std::string token) {
    if (token == "NULL") return "";
    token = token.substr(0, 512);
    const size_t separator = token.find("@@");
    if (separator == std::string::npos) return "";
    return "#" + token.substr(0, separator) + "#" + token.substr(separator + 2);
}

std::string eventOf(const std::string& id, const std::string& payload) {
    std::string event =
        "pelto_event_peltoserver_feedback$MM_FB_EventID#" + std::to_string(phoneAtoi(id.c_str()));
    std::istringstream items(payload);
    for (std::string item; std::getline(items, item, '$');) event += itemOf(item);
    return event;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t newline = std::min(input.find('\n'), input.size());
    mm_kevent_packet packet{};
    const std::string id = fill(packet.event_id, input.substr(0, newline));
    const std::string payload =
        fill(packet.payload, input.substr(std::min(newline + 1, input.size())));
    static const sp<Service>& service = *new sp<Service>(newService());
    PeltoService::handleKernelFeedback(static_cast<PeltoService*>(service.get()), &packet);
    const std::string expected = eventOf(id, payload);
    require(service->mEvent == expected, service->mEvent + " is " + expected);
    return 0;
}

#pragma once

#include <string>

#include "event/EventListener.h"

namespace android {

class PeltoEvent;

// Exercises the delivery of events end to end: logs the fields of test events and of audio-track
// creations, and answers one particular test event with another through the upload utility.
class EventTest : public EventListener {
  public:
    EventTest();
    ~EventTest() override = default;
    void handleEvent(std::string event) override;

  private:
    void registerEventLister();

    void handleForTest(PeltoEvent& event);
    void handleAudioTrackCreate(PeltoEvent& event);
    void handleForTestToNative(PeltoEvent& event);
    void reply();
};

}  // namespace android

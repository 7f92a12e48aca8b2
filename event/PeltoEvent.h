#pragma once

#include <utils/RefBase.h>

#include <string>
#include <unordered_map>

namespace android {

// The parsed form of an event text: type, "$", information. Comma-separated pairs KEY:VALUE in the
// information are its extras. Runs of separators count as one, nothing is trimmed, and the last
// value of a repeated key wins.
//
// A plain record: set by the constructor, unchanged afterwards, read by one thread at a time.
class PeltoEvent : public virtual RefBase {
  public:
    explicit PeltoEvent(std::string event);
    virtual ~PeltoEvent() = default;

    std::string getEventType() { return mEventType; }
    std::string getEventInfo() { return mEventInfo; }
    // The default when there is no such key; 0 when its value does not begin with a number.
    int getIntFromStringExtra(std::string key, int defaultValue);
    // Empty when there is no such key.
    std::string getStringExtra(std::string key);

  private:
    void parseExtras();

    std::string mEventType;
    std::string mEventInfo;
    std::unordered_map<std::string, std::string> mExtras;
};

}  // namespace android

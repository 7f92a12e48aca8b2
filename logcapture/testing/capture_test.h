#pragma once

#include <gmock/gmock.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/ThreadStartControl.h>

#include <filesystem>

#include "event/PeltoEventDisptch.h"
#include "sim/shell/shell.h"
#include "tests/support/phone_fixture.h"

namespace android {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::EndsWith;

// Fixture of the tests of the capture classes; `tag` is the log tag of the class under test.
class CaptureTest : public PhoneTest {
  protected:
    explicit CaptureTest(const char* tag) : mTag(tag) {}

    template <typename T>
    static sp<T> make(const std::string& info) {
        return new T(String8(info));
    }
    static void report(const std::string& type, const std::string& info) {
        PeltoEventDisptch::getInstance().setEvent(String8(type), String8(info));
    }
    std::string said() { return PhoneTest::said(mTag); }
    // The command lines since the last call, one per line.
    std::string ran() {
        const auto all = commands();
        std::string text;
        for (; mRan < all.size(); ++mRan) text += all[mRan] + "\n";
        return text;
    }
    static int count(const std::string& text, const std::string& part) {
        int found = 0;
        for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++found;
        return found;
    }
    // Waits until `times` objects of that class have been destroyed.
    bool waitDestroyed(const std::string& name, int times = 1) {
        return waitLogged(ANDROID_LOG_DEBUG, name, "~" + name + "()", times);
    }

  private:
    const std::string mTag;
    size_t mRan = 0;
};

}  // namespace android

#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "sim/control/control.h"
#include "tests/support/phone_fixture.h"

// A phone that is told what to do as another process tells it.
class ToldPhoneTest : public PhoneTest {
  protected:
    // What it answers to the words between the blanks: "ok", the last text, or why not.
    std::string tell(const std::string& line) {
        if (!mServed) mServed = phone().control().serve();
        std::istringstream text(line);
        std::vector<std::string> words;
        for (std::string word; std::getline(text, word, ' ');) words.push_back(word);
        const sim::Reply reply = sim::controlRequest(phone(), words);
        return reply.texts.empty() ? std::string(reply.ok ? "ok" : "error") : reply.texts.back();
    }

  private:
    bool mServed = false;
};

#include "commandline/suggestion.h"

#include <gtest/gtest.h>

namespace {

TEST(SuggestionTest, NamesTheNearestKnownWord) {
    const std::vector<std::string> verbs{"phone",   "send",  "getprop", "setprop",
                                         "reports", "stats", "status",  "top-activity"};
    const std::pair<const char*, const char*> cases[] = {
        {"snd", "send"},
        {"sendd", "send"},
        {"sned", "send"},
        {"stat", "stats"},
        {"statuss", "status"},
        {"etgprop", "getprop"},
        {"betprop", "getprop"},
        {"rpeotrs", "reports"},
        {"topactivity", "top-activity"},
        {"send", ""},
        {"otp-cativiyt", "top-activity"},
        {"sn", ""},
        {"dnes", ""},
        {"", ""},
        {"pehno", ""},
        {"ohpen", ""},
        {"Phone", "phone"},
        {"top-activity-xyzuv", ""},
    };
    for (const auto& [word, found] : cases)
        EXPECT_EQ(commandline::nearest(word, verbs), found) << word;
    EXPECT_EQ(commandline::nearest(std::string(1 << 20, 's'), verbs), "");
}

}  // namespace

// Sets properties and plants files among them, and compares what is read with a model. An input is
// lines: "sKEY=VALUE" sets, "fNAME=BYTES" plants a file, "lNAME" a link and "dNAME" a directory.
#include <cutils/properties.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_phone.h"
#include "sim/base/fd.h"
#include "sim/userspace/properties.h"

namespace {

constexpr size_t kMaxKey = 128;
constexpr size_t kMaxValue = 91;
constexpr int kMaxLines = 8;

bool isKey(const std::string& text) {
    static const std::string& allowed =
        *new std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._@:-");
    return !text.empty() && text.size() <= kMaxKey &&
           text.find_first_not_of(allowed) == text.npos && text.find("..") == text.npos &&
           text.front() != '.' && text.back() != '.';
}

// The properties as a map, and what is planted beside them, taken away in the end.
class Model {
  public:
    ~Model() {
        for (const std::string& name : mMade) {
            if (unlink(pathOf(name).c_str()) != 0) rmdir(pathOf(name).c_str());
        }
    }

    void run(FuzzInput line) {
        const uint8_t what = line.byte();
        const std::string name(line.until('=')), value(line.rest());
        if (what == 's') {
            set(name, value);
        } else if (isFileName(name)) {
            plant(what, name, value);
        }
    }

    void check() const {
        require(mProperties.all() == mValues, "all properties are those of the model");
        for (const std::string& name : mMade) {
            const auto known = mValues.find(name);
            const bool isSet = known != mValues.end();
            require(mProperties.get(name) == (isSet ? std::optional(known->second) : std::nullopt),
                    "the value is the model's");
            char text[PROPERTY_VALUE_MAX];
            const int size = property_get(name.c_str(), text, "");
            require(size == static_cast<int>(strlen(text)) &&
                        text == std::string(isSet ? known->second.c_str() : ""),
                    "the product gets it up to a NUL");
        }
    }

  private:
    void set(const std::string& key, const std::string& value) {
        // A dump that runs would write files.
        if (key == "ctl.start" && value == "audiodumpinfo") return;
        const bool readOnly = key.compare(0, 3, "ro.") == 0;
        const bool expected = isKey(key) && key.compare(0, 4, "ctl.") != 0 &&
                              value.size() <= kMaxValue && value.find('\0') == value.npos &&
                              !(readOnly && mMade.count(key) != 0) && mDirectories.count(key) == 0;
        require(mProperties.set(key, value) == expected, "it is set, or refused: " + key);
        if (!expected) return;
        mMade.insert(key);
        mValues[key] = value;
    }

    void plant(uint8_t what, const std::string& name, const std::string& bytes) {
        if (mMade.count(name) != 0) return;
        const std::string path = pathOf(name);
        if (what == 'f') {
            require(sim::writeFile(path, bytes), "a file is planted");
            if (isKey(name)) mValues[name] = bytes.substr(0, kMaxValue);
        } else if (what == 'l') {
            require(symlink("/etc/hostname", path.c_str()) == 0, "a link is planted");
        } else if (what == 'd') {
            require(mkdir(path.c_str(), 0700) == 0, "a directory is planted");
            mDirectories.insert(name);
        } else if (what == 'q') {
            require(mkfifo(path.c_str(), 0600) == 0, "a FIFO is planted");
        } else {
            return;
        }
        mMade.insert(name);
    }

    static bool isFileName(const std::string& name) {
        return !name.empty() && name.size() <= 255 && name.find('/') == name.npos &&
               name.find('\0') == name.npos && name != "." && name != "..";
    }
    static std::string pathOf(const std::string& name) {
        return fuzzPhone().runDir() + "/properties/" + name;
    }

    sim::Properties& mProperties = fuzzPhone().properties();
    std::map<std::string, std::string> mValues;
    std::set<std::string> mMade, mDirectories;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    Model model;
    for (int i = 0; i < kMaxLines && !input.empty(); ++i) {
        const std::string_view line = input.until('\n');
        model.run({reinterpret_cast<const uint8_t*>(line.data()), line.size()});
        model.check();
    }
    return 0;
}

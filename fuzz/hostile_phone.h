#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/fuzz_phone.h"

// A phone whose files hold links that lead out of it, and the files beside them, which nothing that
// the product is asked for may change.
class HostilePhone {
  public:
    HostilePhone() {
        for (const std::string& place : {mBeside, mPrecious}) write(place + "/E1/file");
        plant();
    }

    const std::string& fs() const { return mFs; }
    // The folders beside the phone's files.
    const std::string& beside() const { return mBeside; }
    const std::string& precious() const { return mPrecious; }

    // The text for a fuzzer's input: a byte from 0x80 on stands for a token, any other for itself.
    std::string textOf(const uint8_t* data, size_t size) const {
        constexpr size_t kMaxText = 8192;
        std::string text;
        for (size_t i = 0; i < size && text.size() < kMaxText; ++i) {
            text += data[i] < 0x80 ? std::string(1, static_cast<char>(data[i]))
                                   : tokenOf(kTokens[(data[i] - 0x80u) % std::size(kTokens)]);
        }
        return text;
    }

    // Makes the phone's files, those that are missing and those that were changed.
    void plant() const {
        for (const char* file : {"/data/tombstones/tombstone_00", "/data/in/E1/file",
                                 "/data/x/file", "/data/x/-rf", "/data/x/a b", "/data/x/|&\\"})
            write(mFs + file);
        link(mBeside, "/data/out");
        for (const char* name : {"/data/link", "/data/in/E1/link", "/data/tombstones/tombstone_01"})
            link(mBeside + "/E1/file", name);
    }

  private:
    static constexpr const char* kTokens[] = {
        ",",           "/",         "/..",
        "/../",        "/data/x/",  "/data/out/",
        "/data/link",  "/data/in/", "E1",
        "A0345",       "127",       "4",
        "*",           " > ",       " -C ",
        " -rf ",       " --",       "\n",
        " ",           ".",         "/../run/precious/",
        "/sys/",       "@BESIDE",   "@BESIDE/E1/",
        "$(id)",       "; id",      "| id",
        "`id`",        "-I id",     "~",
        "/proc/self/", "-c",        "@LONG",
    };

    std::string tokenOf(const std::string& token) const {
        if (token == "@LONG") return std::string(512, 'p');
        return token[0] == '@' ? mBeside + token.substr(strlen("@BESIDE")) : token;
    }
    static void write(const std::filesystem::path& path) {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "alive";
    }
    void link(const std::string& to, const char* name) const {
        std::error_code exists;
        std::filesystem::create_symlink(to, mFs + name, exists);
    }

    const std::string mFolder = fuzzPhone().folder(), mFs = fuzzPhone().fsDir();
    const std::string mBeside = mFolder + "/beside", mPrecious = mFolder + "/run/precious";
};

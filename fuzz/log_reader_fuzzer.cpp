// Follows the log's files while bytes are appended to them and they are cut, rotated and removed.
// Each byte of an input up to 0x07 is a step, any other is appended. The reader gives the whole
// lines of a model; a writer's lines come through whatever stands in the file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_phone.h"
#include "sim/userspace/logcat.h"

namespace {

using Lines = std::vector<std::string>;

// The bytes written to one file, and how many of them were read.
struct File {
    std::string bytes;
    size_t read = 0;
    std::string partial;

    void drain(Lines& lines) {
        if (bytes.size() < read) {  // it was cut and starts again
            read = 0;
            partial.clear();
        }
        for (; read < bytes.size(); ++read) {
            if (bytes[read] != '\n') {
                partial += bytes[read];
            } else {
                lines.push_back(std::move(partial));
                partial.clear();
            }
        }
    }
};

class World {
  public:
    World() : mLog(mDirectory), mReader(mDirectory) {}

    // Begins with an empty file, and a reader that has read it.
    void reset() {
        unlink((mDirectory + "/main.old").c_str());
        unlink(mMain.c_str());
        mHeld.reset();
        mHeld = File();
        mCurrent.reset();
        open();
        linesOf(mReader);
        mHeld = File();
        mCurrent.reset();
    }

    void run(FuzzInput input) {
        while (!input.empty()) step(input);
        checkRead();
        checkWriter();
    }

  private:
    void step(FuzzInput& input) {
        const uint8_t what = input.byte();
        if (what > 7) return append(std::string_view(reinterpret_cast<const char*>(&what), 1));
        switch (what) {
            case 1:
                return checkRead();
            case 2:
                return truncateTo(input.byte());
            case 3:
                return rotate();
            case 4:
                return append("\n");
            case 5:
                return append("01-02 03:04:05.006     7     8 I tag     : text\n");
            default:
                return append(input.bytes(what * 16u));
        }
    }

    void append(std::string_view bytes) {
        const sim::Fd fd(::open(mMain.c_str(), O_WRONLY | O_APPEND));
        require(sim::writeAll(fd.get(), bytes.data(), bytes.size()), "bytes are appended");
        written().bytes += bytes;
    }
    void truncateTo(size_t size) {
        if (written().bytes.size() <= size) return;
        require(truncate(mMain.c_str(), static_cast<off_t>(size)) == 0, "the file is cut");
        written().bytes.resize(size);
    }
    void rotate() {
        require(rename(mMain.c_str(), (mDirectory + "/main.old").c_str()) == 0, "it is rotated");
        mCurrent = File();  // one in between is never read
        open();
    }
    void open() { sim::writeFile(mMain, ""); }
    // The file that is written now: the one the reader has open, or one after it.
    File& written() { return mCurrent ? *mCurrent : *mHeld; }

    static Lines linesOf(sim::LogReader& reader) {
        Lines lines;
        reader.read([&](std::string_view line) { lines.emplace_back(line); });
        return lines;
    }
    void checkRead() {
        Lines expected;
        mHeld->drain(expected);
        if (mCurrent) {
            mHeld = std::move(mCurrent);
            mCurrent.reset();
            mHeld->drain(expected);
        }
        require(linesOf(mReader) == expected, "the lines read are the whole ones");
    }

    void checkWriter() {
        require(mLog.write(sim::kInfo, "fuzz", "the last one"), "a line is written");
        // The other reader does not notice a file that was cut and has grown again.
        sim::LogReader fresh(mDirectory, false);
        const Lines lines = linesOf(fresh);
        sim::LogLine last;
        require(!lines.empty() && last.parse(lines.back()) && last.tag == "fuzz" &&
                    last.message == "the last one",
                "a writer's line stands alone");
    }

    const std::string mDirectory = fuzzPhone().runDir() + "/log", mMain = mDirectory + "/main";
    sim::Log mLog;
    sim::LogReader mReader;
    std::optional<File> mHeld, mCurrent;  // open in the reader; the one it has yet to open
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World& world = *new World;
    world.reset();
    world.run({data, size});
    return 0;
}

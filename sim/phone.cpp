#include "sim/phone.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "sim/base/fd.h"
#include "sim/base/line_file.h"
#include "sim/base/mutex.h"
#include "sim/base/root.h"
#include "sim/control/clock_and_fault_commands.h"
#include "sim/control/kernel_commands.h"
#include "sim/control/server.h"
#include "sim/default_phone.h"
#include "sim/kernel/display_kernel.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/kernel/gpu.h"
#include "sim/kernel/kernel_log.h"
#include "sim/kernel/sysfs_attributes.h"
#include "sim/shell/phone_programs.h"
#include "sim/shell/shell.h"
#include "sim/userspace/audio_dump.h"
#include "sim/userspace/log.h"
#include "sim/userspace/program_faults.h"
#include "sim/userspace/properties.h"
#include "sim/userspace/reports.h"
#include "sim/userspace/services.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kTimeout{10};  // of waiting while another process makes the phone
constexpr char kMarker[] = "pelto phone 1\n";
constexpr const char* kDirectories[] = {
    "data/kelvo/mmdump/gpu",
    "data/persist_log/TMP/audio_dumpsys",
    "data/persist_log/wex/exception_log",
    "data/ruvi/log/VRN/de/audioDetLog",
    "data/tombstones",
    "dev",
    "proc",
    "sys/class/kgsl/kgsl-3d0/snapshot",
    "system/bin",
};

std::atomic<Phone*> gPhone{nullptr};

template <typename Failure = std::runtime_error>
[[noreturn]] void refuse(const std::string& folder, const std::string& why) {
    throw Failure(folder + ": " + why);
}

// Refuses a folder whose entries another user could exchange: the product's paths and the phone's
// state are only as safe as the folder. Returns it opened.
Fd checkTrust(const std::string& folder) {
    Fd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int error = opened.valid() ? 0 : errno;
    struct stat status {};
    if (::lstat(folder.c_str(), &status) < 0) refuse<NoPhone>(folder, strerror(errno));
    if (S_ISLNK(status.st_mode)) refuse(folder, "is a link; give the folder that it leads to");
    if (!S_ISDIR(status.st_mode)) refuse(folder, "is not a directory");
    if (status.st_uid != geteuid())
        refuse(folder, "belongs to another user, " + std::to_string(status.st_uid));
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        refuse(folder, "can be written by other users; if they left nothing in it: chmod 700");
    if (error != 0) refuse(folder, strerror(error));
    return opened;
}

// Keeps others from reading what a phone's folder holds. One that cannot be written stays as it is.
void closeToOthers(const Fd& folder) {
    struct stat status {};
    if (fstat(folder.get(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        fchmod(folder.get(), S_IRWXU);
}

std::string markerPath(const fs::path& folder) {
    return (folder / "run/phone").string();
}

bool isPhone(const fs::path& folder) {
    Fd fd(::open(markerPath(folder).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return fd.valid() && readAll(fd.get(), sizeof(kMarker)) == kMarker;
}

// Whether the folder holds no more than a creation that was cut short leaves.
bool isUnfinished(const fs::path& folder) {
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename() != "fs" && entry.path().filename() != "run") return false;
    }
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!fs::is_directory(entry.symlink_status()) && entry.path() != markerPath(folder))
            return false;
    }
    return true;
}

void makeDirectories(const fs::path& folder) {
    for (const char* directory : kDirectories) fs::create_directories(folder / "fs" / directory);
    fs::create_directories(folder / "run");
    fs::permissions(folder / "run", fs::perms::owner_all);
    for (const char* directory : {"init", "log", "properties", "reports", "services"})
        fs::create_directories(folder / "run" / directory);
}

// Written last, so that a half-made folder is no phone.
void writeMarker(const fs::path& folder) {
    if (!writeFile(markerPath(folder), kMarker)) refuse(folder, strerror(errno));
}

// One process at a time makes the phone; those that waited find it made.
void makePhone(const fs::path& folder) {
    try {
        fs::create_directories(fs::absolute(folder).parent_path());
        if (::mkdir(folder.c_str(), S_IRWXU) < 0 && errno != EEXIST)
            refuse(folder, strerror(errno));
        const Fd made = checkTrust(folder);
        if (!lockWithin(made.get(), kTimeout)) refuse(folder, "another process works on it");
        if (isPhone(folder)) return;
        if (!isUnfinished(folder)) refuse<NoPhone>(folder, "is neither empty nor a phone");
        makeDirectories(folder);
        writeMarker(folder);
    } catch (const fs::filesystem_error& failure) {
        refuse(folder, failure.code().message());
    }
}

// Without slashes at the end, after which a link would be followed.
std::string withoutSlashes(std::string folder) {
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
}

}  // namespace

// Members are made in the order of their declaration, each from those before it.
Phone::Phone(const std::string& folder)
    : mFolder(folder),
      mRoot(new Root(fsDir())),
      mKernelLog(new KernelLog(runDir() + "/kernel_log")),
      mNetlink(new GenericNetlink),
      mDisplayKernel(new DisplayKernel),
      mAttributes(new Attributes(*mRoot)),
      mGpu(new Gpu(*mAttributes)),
      mLog(new Log(runDir() + "/log")),
      mFaults(new ProgramFaults),
      mServices(new Services(runDir() + "/init", *mLog, *mFaults)),
      mProperties(new Properties(runDir() + "/properties", *mServices, *mLog)),
      mReports(new Reports(runDir() + "/reports")),
      mStats(new LineFile(runDir() + "/stats")),
      mShell(new Shell(*mRoot, *mLog, *mFaults)),
      mControl(new Control(runDir(), *mLog)) {
    addAudioDumpService(*mServices, *mRoot, *mProperties, *mLog);
    addPhonePrograms(*mShell, *mRoot, *mLog, *mKernelLog);
    addAudioCommands(*mControl, *mNetlink);
    addDisplayCommand(*mControl, *mDisplayKernel);
    addGpuCommand(*mControl, *mGpu);
    addClockCommand(*mControl);
    addFaultCommand(*mControl, *mFaults, *mRoot, *mReports);
}

Phone& Phone::create(const std::string& given) {
    const std::string folder = withoutSlashes(given);
    if (!isPhone(folder)) makePhone(folder);
    return open(folder);
}

Phone& Phone::open(const std::string& given) {
    const std::string folder = withoutSlashes(given);
    const Fd opened = checkTrust(folder);
    std::error_code error;
    const std::string path = fs::canonical(folder, error).string();
    if (error) refuse(folder, error.message());
    if (!isPhone(path)) refuse<NoPhone>(folder, "is not a phone's folder");
    for (const char* directory : {"/fs", "/run"}) {
        struct stat status {};
        if (::lstat((path + directory).c_str(), &status) < 0 || !S_ISDIR(status.st_mode))
            refuse<NoPhone>(folder, "is not a phone's folder");
        if (status.st_uid != geteuid()) refuse(folder + directory, "belongs to another user");
    }
    closeToOthers(opened);
    static Mutex& opening = *new Mutex;
    const Lock lock(opening);
    if (Phone* phone = find()) {
        if (phone->mFolder != path) refuse(folder, "this process runs in " + phone->mFolder);
        return *phone;
    }
    // Never destroyed: threads of its users may outlive main().
    auto* const phone = new Phone(path);
    gPhone.store(phone, std::memory_order_release);
    return *phone;
}

Phone& Phone::get() {
    if (Phone* phone = find()) return *phone;
    return openDefaultPhone();
}

Phone* Phone::find() {
    return gPhone.load(std::memory_order_acquire);
}

}  // namespace sim

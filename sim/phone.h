#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace sim {

class Attributes;
class Control;
class DisplayKernel;
class GenericNetlink;
class Gpu;
class KernelLog;
class LineFile;
class Log;
class ProgramFaults;
class Properties;
class Reports;
class Root;
class Services;
class Shell;

// Thrown for a folder that is missing, or holds other things than a phone.
class NoPhone : public std::runtime_error {
    using runtime_error::runtime_error;
};

// The simulated phone of this process: one folder, whose FOLDER/fs is the phone's "/" and whose
// FOLDER/run holds the phone's state beside its files: log, properties, sockets. Commands and paths
// of the product never reach run/. The parts are made here, each handed the parts it uses.
//
// Trust: the folder (0700) keeps other users out. One that is a link, belongs to another user or
//   can be written by others is refused. A process of the same user that exchanges names meanwhile
//   is not kept out.
// Ownership: one object a process, never destroyed. Several processes may open one folder at once.
// Threads: any. A process that names its phone opens it before other threads use one.
// Errors: create() and open() throw NoPhone or another std::runtime_error with one line that names
//   the folder and the reason, also when this process has opened another phone. A phone that cannot
//   be written is opened all the same: what it holds can be read, and each part reports what it
//   could not write.
class Phone {
  public:
    // Makes a phone in a new or empty folder, or one where that was cut short, and opens it. A
    // folder that is a phone already is opened as it is; while another process makes it, this
    // waits.
    static Phone& create(const std::string& folder);
    // Opens a folder that create() made.
    static Phone& open(const std::string& folder);
    // The open phone. The first call opens the default one (default_phone.h) when none is open yet.
    static Phone& get();
    // The open phone, or null.
    static Phone* find();

    Root& root() { return *mRoot; }
    // Parts of its kernel:
    KernelLog& kernelLog() { return *mKernelLog; }
    GenericNetlink& netlink() { return *mNetlink; }
    DisplayKernel& displayKernel() { return *mDisplayKernel; }
    Attributes& attributes() { return *mAttributes; }
    Gpu& gpu() { return *mGpu; }
    // Parts of its user space:
    Log& log() { return *mLog; }
    ProgramFaults& faults() { return *mFaults; }
    Services& services() { return *mServices; }
    Properties& properties() { return *mProperties; }
    Reports& reports() { return *mReports; }
    LineFile& stats() { return *mStats; }  // statistics: an event a line, tabs between its fields
    // Its shell and its control socket:
    Shell& shell() { return *mShell; }
    Control& control() { return *mControl; }

    // Absolute workstation paths, without a slash at the end.
    std::string folder() const { return mFolder; }
    std::string fsDir() const { return mFolder + "/fs"; }
    std::string runDir() const { return mFolder + "/run"; }

  private:
    explicit Phone(const std::string& folder);

    const std::string mFolder;
    std::unique_ptr<Root> mRoot;
    std::unique_ptr<KernelLog> mKernelLog;
    std::unique_ptr<GenericNetlink> mNetlink;
    std::unique_ptr<DisplayKernel> mDisplayKernel;
    std::unique_ptr<Attributes> mAttributes;
    std::unique_ptr<Gpu> mGpu;
    std::unique_ptr<Log> mLog;
    std::unique_ptr<ProgramFaults> mFaults;
    std::unique_ptr<Services> mServices;
    std::unique_ptr<Properties> mProperties;
    std::unique_ptr<Reports> mReports;
    std::unique_ptr<LineFile> mStats;
    std::unique_ptr<Shell> mShell;
    std::unique_ptr<Control> mControl;
};

}  // namespace sim

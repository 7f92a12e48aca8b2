#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

class Log;
class Services;

// The phone's properties: run/properties, one file each, shared by every process of the phone. A
// reader never sees half a value.
//
// Keys: [A-Za-z0-9._@:-], 1 to 128 characters, no "." at either end nor two in a row. Values: at
// most 91 bytes, no NUL. "ro." properties are set once. Setting "ctl.start" starts the service that
// the value names and stores nothing; "init.svc.NAME" is then "running" or "stopped". No other
// "ctl." key exists.
// Threads: any.
class Properties {
  public:
    static constexpr size_t kMaxValueBytes = 91;

    // `directory` exists. `services` and `log` must outlive this object, and this object the runs
    // of the services.
    Properties(std::string directory, Services& services, Log& log)
        : mDirectory(std::move(directory)), mServices(services), mLog(log) {}

    std::optional<std::string> get(const std::string& key) const;
    // False and a log line for a bad key or value, or when it cannot be written.
    bool set(const std::string& key, const std::string& value);
    std::map<std::string, std::string> all() const;

    // Clears what killed processes have left: a service that none runs any more is "stopped", and
    // a value that none is writing any more is dropped.
    void clearLeftovers();

  private:
    // Logs one line; returns false.
    bool refuse(const std::string& key, const char* why);
    bool store(const std::string& key, const std::string& value);
    std::vector<std::string> names() const;  // of all files
    std::string path(const std::string& key) const { return mDirectory + "/" + key; }

    const std::string mDirectory;
    Services& mServices;
    Log& mLog;
};

}  // namespace sim

#pragma once

#include <map>
#include <optional>
#include <string>

namespace sim {

class Services;

// The phone's properties: one file each in run/properties, shared by every process of the phone. A
// value is replaced whole or not at all.
//
// Keys: [A-Za-z0-9._@:-], 1 to 128 characters, no "." at either end nor two in a row. Values: at
// most 91 bytes, no NUL. "ro." properties are set once. Setting "ctl.start" has the service of that
// name run and stores nothing; "init.svc.NAME" then tells whether it is "running" or "stopped". No
// other "ctl." key exists.
// Threads: any.
class Properties {
  public:
    static constexpr size_t kValueBytes = 91;

    // `directory` exists; `services` outlives this, which outlives what they run.
    Properties(std::string directory, Services& services);

    std::optional<std::string> get(const std::string& key) const;
    // False and a log line when the key, the value or the disk refuses.
    bool set(const std::string& key, const std::string& value);
    std::map<std::string, std::string> all() const;

  private:
    bool store(const std::string& key, const std::string& value);
    std::string path(const std::string& key) const { return mDirectory + "/" + key; }

    const std::string mDirectory;
    Services& mServices;
};

}  // namespace sim

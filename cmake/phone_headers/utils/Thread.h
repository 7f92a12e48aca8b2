#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

namespace android {

class Thread : virtual public RefBase {
  public:
    explicit Thread(bool canCallJava = true);
    virtual ~Thread();
    virtual status_t run(const char* name, int32_t priority = 0, size_t stack = 0);
    virtual void requestExit();
    virtual status_t readyToRun();
    status_t requestExitAndWait();
    bool isRunning() const;

  protected:
    bool exitPending() const;

  private:
    virtual bool threadLoop() = 0;
};

}  // namespace android

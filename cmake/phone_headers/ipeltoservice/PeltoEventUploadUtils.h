#pragma once

#include <utils/Singleton.h>
#include <utils/String8.h>

namespace android {

class PeltoEventUploadUtils : public Singleton<PeltoEventUploadUtils> {
  public:
    void setEvent(const String8& type, const String8& info);
};

}  // namespace android

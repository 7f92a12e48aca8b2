#include "sim/kernel/gpu.h"

#include <errno.h>

#include <algorithm>

namespace sim {
namespace {

constexpr std::initializer_list<const char*> kFiles{Gpu::kControl, Gpu::kHashId, Gpu::kDump,
                                                    Gpu::kTimestamp};

}  // namespace

Gpu::Gpu(Attributes& attributes) : mAttributes(attributes) {
    mAttributes.setSize(kDump, 0);
    appear();
}

void Gpu::fault(const Fault& fault) {
    mAttributes.set(kControl, fault.control);
    mAttributes.set(kHashId, fault.hashId);
    mAttributes.set(kDump, fault.snapshot);
    mAttributes.set(kTimestamp, fault.timestamp);
    mAttributes.notify(kTimestamp);
}

void Gpu::setControl(const std::string& control) {
    mAttributes.set(kControl, control);
}

void Gpu::vanish() {
    mAttributes.remove(kFiles);
}

void Gpu::appear() {
    for (const char* file : kFiles) mAttributes.setFaults(file, {});
    mAttributes.set(kControl, "0\n");
    mAttributes.set(kHashId, "");
    mAttributes.set(kDump, "");
    mAttributes.set(kTimestamp, "0\n");
}

void Gpu::makeUnreadable(const std::string& path) {
    Attributes::Faults faults;
    faults.openError = EACCES;
    mAttributes.setFaults(path, faults);
}

void Gpu::shortenReads(size_t bytes) {
    Attributes::Faults faults;
    faults.readBytes = bytes;
    mAttributes.setFaults(kDump, faults);
}

void Gpu::vanishAfter(size_t bytes) {
    Attributes::Faults faults;
    faults.endsAfter = bytes;
    faults.atEnd = [this] { vanish(); };
    mAttributes.setFaults(kDump, faults);
}

bool Gpu::hasReader() {
    return mAttributes.waitIdle(std::chrono::seconds(0));
}

std::string Gpu::snapshotOf(size_t size) {
    constexpr size_t kRun = 64;  // runs of one byte compress well
    std::string text;
    text.reserve(size);
    for (uint32_t i = 0; text.size() < size; ++i)
        text.append(std::min(kRun, size - text.size()), static_cast<char>(i * 2654435761u >> 24));
    return text;
}

}  // namespace sim

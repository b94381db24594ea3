#include "platform/audio/virtual/VirtualScript.h"

namespace velorin {

void VirtualScript::failNext(VirtualOperation operation, AudioStatus status, int times) {
  MutexLock lock(_mutex);
  _faults[operation] = {std::move(status), times};
}

AudioStatus VirtualScript::call(VirtualOperation operation) {
  MutexLock lock(_mutex);
  ++_calls[operation];
  const auto fault = _faults.find(operation);
  if (fault == _faults.end() || fault->second.times <= 0) return AudioStatus::success();
  --fault->second.times;
  return fault->second.status;
}

int VirtualScript::callCount(VirtualOperation operation) const {
  MutexLock lock(_mutex);
  const auto calls = _calls.find(operation);
  return calls == _calls.end() ? 0 : calls->second;
}

}  // namespace velorin

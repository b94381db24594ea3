#include "platform/audio/ListenerList.h"

#include <algorithm>
#include <vector>

#include "foundation/Mutex.h"
#include "foundation/SerialQueue.h"

namespace velorin {
namespace {

struct Entry {
  AudioProperty property;
  AudioDeviceID device;
  std::uint32_t element;
  SerialQueue& queue;
  std::function<void()> changed;
};

bool concerns(const Entry& entry, AudioProperty property, AudioDeviceID device,
              std::uint32_t element) {
  if (entry.property != property) return false;
  if (property == AudioProperty::devices || property == AudioProperty::defaultOutput) return true;
  if (entry.device != device) return false;
  return property != AudioProperty::volume || entry.element == element;
}

}  // namespace

struct ListenerList::State {
  Mutex mutex;
  std::vector<std::shared_ptr<Entry>> entries GUARDED_BY(mutex);
};

namespace {

// Owned by the Listener; its end takes the entry out.
template <class State>
struct Token {
  std::shared_ptr<State> state;
  std::shared_ptr<Entry> entry;

  Token(std::shared_ptr<State> s, std::shared_ptr<Entry> e)
      : state(std::move(s)), entry(std::move(e)) {}
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;
  ~Token() {
    MutexLock lock(state->mutex);
    std::erase(state->entries, entry);
  }
};

}  // namespace

ListenerList::ListenerList() : _state(std::make_shared<State>()) {}

AudioHardware::Listener ListenerList::add(AudioProperty property, AudioDeviceID device,
                                          std::uint32_t element, SerialQueue& queue,
                                          std::function<void()> changed) {
  auto entry = std::make_shared<Entry>(Entry{property, device, element, queue, std::move(changed)});
  {
    MutexLock lock(_state->mutex);
    _state->entries.push_back(entry);
  }
  return AudioHardware::Listener(std::make_shared<Token<State>>(_state, std::move(entry)));
}

void ListenerList::notify(AudioProperty property, AudioDeviceID device, std::uint32_t element) {
  // Queued under the lock: a queue is sure to live only as long as its entry is in the list.
  MutexLock lock(_state->mutex);
  for (const auto& entry : _state->entries) {
    if (!concerns(*entry, property, device, element)) continue;
    entry->queue.async([weak = std::weak_ptr<Entry>(entry)] {
      if (const auto alive = weak.lock()) alive->changed();
    });
  }
}

}  // namespace velorin

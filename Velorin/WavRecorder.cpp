#include "WavRecorder.h"

#include <algorithm>
#include <system_error>

#include "foundation/Text.h"

namespace velorin {
namespace fs = std::filesystem;

WavRecorder::WavRecorder(fs::path output, std::vector<fs::path> inputs,
                         std::function<void()> failed)
    : _output(std::move(output)), _inputs(std::move(inputs)), _failed(std::move(failed)) {}

WavRecorder::~WavRecorder() = default;

fs::path WavRecorder::numbered(const fs::path& output, std::size_t number) {
  if (number < 2) return output;
  const std::string name =
      output.stem().string() + "." + std::to_string(number) + output.extension().string();
  return output.parent_path() / name;
}

void WavRecorder::begin(const StreamFormat& format) {
  const MutexLock lock(_mutex);
  _spec = WavSpec::of(format);
  _heldSilence = 0;
}

void WavRecorder::expect(std::uint32_t frames) {
  const MutexLock lock(_mutex);
  _onTheirWay += frames;
}

std::uint64_t WavRecorder::settledFrames() const {
  MutexLock lock(_mutex);
  while (_onTheirWay > 0) _settled.wait(_mutex);
  return frames();
}

void WavRecorder::arrived(std::uint64_t frames) {
  _onTheirWay -= std::min(frames, _onTheirWay);
  if (_onTheirWay == 0) _settled.notifyAll();
}

void WavRecorder::record(const AudioBufferList& list, std::uint32_t frames,
                         std::uint32_t programme) {
  const MutexLock lock(_mutex);
  write(list, frames, programme);
  arrived(frames);
}

void WavRecorder::write(const AudioBufferList& list, std::uint32_t frames,
                        std::uint32_t programme) {
  if (_hasFailed || !_spec) return;
  if (programme == 0) {
    _heldSilence += frames;
    return;
  }
  if (!ensureWriter()) return;
  WavWriter& writer = *_writers.back();
  if (!writer.appendSilence(std::exchange(_heldSilence, 0)) || !writer.append(list, programme)) {
    return fail(writer.error());
  }
  _heldSilence = frames - programme;
  _frames.fetch_add(programme, std::memory_order_release);
}

void WavRecorder::end() {
  const MutexLock lock(_mutex);
  arrived(_onTheirWay);
  _heldSilence = 0;
}

bool WavRecorder::ensureWriter() {
  if (!_writers.empty() && _writers.back()->spec() == *_spec) return true;
  const fs::path path = numbered(_output, _writers.size() + 1);
  for (const fs::path& input : _inputs) {
    std::error_code none;
    if (fs::equivalent(path, input, none)) {
      fail({text::pathForDisplay(path) + ": is one of the files to render: choose another name"});
      return false;
    }
  }
  auto writer = WavWriter::create(path, *_spec);
  if (!writer) {
    fail(writer.error());
    return false;
  }
  _writers.push_back(std::move(writer).value());
  return true;
}

void WavRecorder::fail(const OutputError& error) {
  if (_hasFailed) return;
  _hasFailed = true;
  _errorText = error.text;
  if (_failed) _failed();
}

bool WavRecorder::finish() {
  const MutexLock lock(_mutex);
  if (!_hasFailed && _writers.empty() && _spec) ensureWriter();
  for (const auto& writer : _writers) {
    if (_hasFailed) return false;
    if (!writer->commit()) fail(writer->error());
  }
  return !_hasFailed;
}

bool WavRecorder::holdsSilence() const {
  const MutexLock lock(_mutex);
  return _heldSilence > 0;
}

std::string WavRecorder::errorText() const {
  const MutexLock lock(_mutex);
  return _errorText;
}

std::vector<fs::path> WavRecorder::files() const {
  const MutexLock lock(_mutex);
  std::vector<fs::path> paths;
  for (const auto& writer : _writers) paths.push_back(writer->path());
  return paths;
}

}  // namespace velorin

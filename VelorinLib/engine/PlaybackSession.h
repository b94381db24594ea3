// All state of one playing file, from play() to stop().
//
// Shared between the engine and the fill thread. A fill thread that is stuck in a read when the
// track is stopped keeps its session alive until the read returns; the engine has long gone on
// with a new one. Whoever drops the last reference closes the file.
#pragma once

#include <memory>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/fill/FillWaker.h"
#include "engine/render/RenderGate.h"
#include "engine/render/TransportCells.h"
#include "engine/resampling/SoxrResampler.h"
#include "engine/ring/AudioRingBuffer.h"
#include "platform/audio/StreamFormat.h"
#include "records/Track.h"

namespace velorin {

struct PlaybackSession {
  // --- Constant once the fill thread runs ---

  std::string filePath;
  StreamFormat fileFormat;    ///< the file as decoded
  StreamFormat clientFormat;  ///< what the ring holds
  DecoderInfo decoderInfo;
  bool isIntegerOutput = false;
  int sourceBitDepth = 0;
  double targetSampleRate = 0;  ///< Hz after the resampler, 0 without one
  std::unique_ptr<AudioRingBuffer> ring;

  // --- The engine queue's before the fill thread runs, the fill thread's after ---

  std::unique_ptr<FileDecoder> decoder;
  std::unique_ptr<SoxrResampler> resampler;

  // --- Synchronise themselves ---

  TransportCells cells;
  RenderGate gate;
  FillWaker waker;
};

}  // namespace velorin

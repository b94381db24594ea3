// Second-order sections in SIMD lanes, for every x86 instruction set.
//
// Included as VectorX86.inl is, after D (doubles) with kDoubleLanes lanes and the functions on it.
// A register holds kDepth sections of both streams: pair k of its lanes runs section k on the frame
// that is k steps old, so one step of the whole register advances kDepth sections by a frame each.
// Up to four registers form a pass; the lane pairs of all of them make one diagonal. The first and
// the last steps of a pass, in which part of the lanes have no frame to work on, keep the state of
// those lanes and leave out registers that are wholly idle.

constexpr std::size_t kDepth = kDoubleLanes / 2;
constexpr std::size_t kMostStages = 4;

struct Stage {
  D b0, b1, b2, a1, a2;
  D s1, s2;
  D y;
  D index;  // of the lane's section within the pass
};

inline void loadStage(Stage& stage, const BiquadPairs& c, std::size_t first, std::size_t within) {
  const std::size_t at = 2 * (first + within);
  stage.b0 = load(c.b0 + at);
  stage.b1 = load(c.b1 + at);
  stage.b2 = load(c.b2 + at);
  stage.a1 = load(c.a1 + at);
  stage.a2 = load(c.a2 + at);
  stage.s1 = load(c.s1 + at);
  stage.s2 = load(c.s2 + at);
  stage.y = broadcastDouble(0);
  double indices[kDoubleLanes];
  for (std::size_t i = 0; i < kDoubleLanes; ++i) indices[i] = static_cast<double>(within + i / 2);
  stage.index = load(indices);
}

inline void storeStage(const Stage& stage, const BiquadPairs& c, std::size_t at) {
  store(c.s1 + 2 * at, stage.s1);
  store(c.s2 + 2 * at, stage.s2);
}

inline void advance(Stage& stage, D x) {
  const D y = plus(multiply(stage.b0, x), stage.s1);
  stage.s1 = minus(plus(multiply(stage.b1, x), stage.s2), multiply(stage.a1, y));
  stage.s2 = minus(multiply(stage.b2, x), multiply(stage.a2, y));
  stage.y = y;
}

// One of the first or last steps: lanes whose frame lies outside of 0 .. frames - 1 stay as they
// are.
inline void advanceEdge(Stage& stage, D x, D step, D frames) {
  const D s1 = stage.s1;
  const D s2 = stage.s2;
  advance(stage, x);
  const D frame = minus(step, stage.index);
  stage.s1 = whereWithin(frame, frames, stage.s1, s1);
  stage.s2 = whereWithin(frame, frames, stage.s2, s2);
}

// `kStages` is a constant in every call and this function always inlined: each call site becomes a
// loop of its own whose state stays in registers.
[[gnu::always_inline]] inline void filterPass(const std::size_t kStages, const BiquadPairs& c,
                                              std::size_t first, std::size_t sections,
                                              double* samples, std::size_t frames) {
  Stage s0;
  Stage s1;
  Stage s2;
  Stage s3;
  loadStage(s0, c, first, 0);
  if (kStages > 1) loadStage(s1, c, first, kDepth);
  if (kStages > 2) loadStage(s2, c, first, 2 * kDepth);
  if (kStages > 3) loadStage(s3, c, first, 3 * kDepth);
  const std::size_t lag = sections - 1;
  const Tap tap = tapAt(lag % kDepth);

  const auto edges = [&](std::size_t from, std::size_t to) __attribute__((always_inline)) {
    const D count = broadcastDouble(static_cast<double>(frames));
    for (std::size_t t = from; t < to; ++t) {
      const D now = broadcastDouble(static_cast<double>(t));
      const auto isBusy = [&](std::size_t stage) __attribute__((always_inline)) {
        return t >= stage * kDepth && t < frames + (stage + 1) * kDepth - 1;
      };
      // From the last to the first: each takes what the one before it had a step ago.
      if (kStages > 3 && isBusy(3)) advanceEdge(s3, shiftIn(s2.y, s3.y), now, count);
      if (kStages > 2 && isBusy(2)) advanceEdge(s2, shiftIn(s1.y, s2.y), now, count);
      if (kStages > 1 && isBusy(1)) advanceEdge(s1, shiftIn(s0.y, s1.y), now, count);
      const D in = t < frames ? loadPair(samples + 2 * t) : broadcastDouble(0);
      if (isBusy(0)) advanceEdge(s0, shiftIn(in, s0.y), now, count);
      if (t >= lag) {
        const D y = kStages == 1 ? s0.y : kStages == 2 ? s1.y : kStages == 3 ? s2.y : s3.y;
        storePair(samples + 2 * (t - lag), y, tap);
      }
    }
  };

  edges(0, lag);
  for (std::size_t t = lag; t < frames; ++t) {
    if (kStages > 3) advance(s3, shiftIn(s2.y, s3.y));
    if (kStages > 2) advance(s2, shiftIn(s1.y, s2.y));
    if (kStages > 1) advance(s1, shiftIn(s0.y, s1.y));
    advance(s0, shiftIn(loadPair(samples + 2 * t), s0.y));
    const D y = kStages == 1 ? s0.y : kStages == 2 ? s1.y : kStages == 3 ? s2.y : s3.y;
    storePair(samples + 2 * (t - lag), y, tap);
  }
  edges(frames > lag ? frames : lag, frames + lag);

  storeStage(s0, c, first);
  if (kStages > 1) storeStage(s1, c, first + kDepth);
  if (kStages > 2) storeStage(s2, c, first + 2 * kDepth);
  if (kStages > 3) storeStage(s3, c, first + 3 * kDepth);
}

void filterPairs(const BiquadPairs& c, double* samples, std::size_t frames) noexcept {
  std::size_t first = 0;
  while (first < c.sections) {
    const std::size_t left = c.sections - first;
    const std::size_t stages = (left + kDepth - 1) / kDepth;
    if (stages >= kMostStages) {
      const std::size_t sections = left < kMostStages * kDepth ? left : kMostStages * kDepth;
      filterPass(4, c, first, sections, samples, frames);
      first += sections;
      continue;
    }
    if (stages == 3) filterPass(3, c, first, left, samples, frames);
    if (stages == 2) filterPass(2, c, first, left, samples, frames);
    if (stages == 1) filterPass(1, c, first, left, samples, frames);
    break;
  }
}

unsigned brokenStreams(const double* values, std::size_t pairs) noexcept {
  const D zero = broadcastDouble(0);
  D sum = zero;  // stays 0 while all is finite: 0 times infinity or NaN is NaN
  std::size_t i = 0;
  for (; i + kDepth <= pairs; i += kDepth) sum = plus(sum, multiply(load(values + 2 * i), zero));
  double lanes[kDoubleLanes];
  store(lanes, sum);
  return scalar::brokenStreams(lanes, kDepth) | scalar::brokenStreams(values + 2 * i, pairs - i);
}

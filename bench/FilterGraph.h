// FFmpeg's audio filters, as something to measure ours against.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct AVFilterGraph;
struct AVFilterContext;
struct AVFrame;

namespace velorin::bench {

/// A chain of libavfilter's filters over stereo float planes, on the calling thread alone.
class FilterGraph {
 public:
  /// `filters` as on FFmpeg's command line: "equalizer=f=100:t=q:w=1:g=6,volume=0.5". Throws
  /// std::runtime_error when FFmpeg refuses.
  FilterGraph(const std::string& filters, int rate);
  ~FilterGraph();
  FilterGraph(const FilterGraph&) = delete;
  FilterGraph& operator=(const FilterGraph&) = delete;

  /// Filters two planes into two others, a frame of `block` samples at a time. The state goes on
  /// from call to call. Throws std::runtime_error when FFmpeg refuses or a sample goes missing.
  void process(const float* const* in, float* const* out, std::size_t frames, std::size_t block);

 private:
  struct Closer {
    void operator()(AVFilterGraph* graph) const;
    void operator()(AVFrame* frame) const;
  };

  std::unique_ptr<AVFilterGraph, Closer> _graph;
  std::unique_ptr<AVFrame, Closer> _frame;
  AVFilterContext* _source = nullptr;
  AVFilterContext* _sink = nullptr;
};

}  // namespace velorin::bench

#include "bench/FilterGraph.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

namespace velorin::bench {
namespace {

void check(int result, const char* what) {
  if (result >= 0) return;
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(result, text, sizeof text);
  throw std::runtime_error(std::string(what) + ": " + text);
}

}  // namespace

void FilterGraph::Closer::operator()(AVFilterGraph* graph) const {
  avfilter_graph_free(&graph);
}

void FilterGraph::Closer::operator()(AVFrame* frame) const {
  av_frame_free(&frame);
}

FilterGraph::FilterGraph(const std::string& filters, int rate)
    : _graph(avfilter_graph_alloc()), _frame(av_frame_alloc()) {
  if (_graph == nullptr || _frame == nullptr) throw std::runtime_error("no memory for a graph");
  _graph->nb_threads = 1;
  const std::string text = "abuffer@in=sample_rate=" + std::to_string(rate) +
                           ":sample_fmt=fltp:channel_layout=stereo," + filters +
                           ",aformat=sample_fmts=fltp,abuffersink@out";
  AVFilterInOut* inputs = nullptr;
  AVFilterInOut* outputs = nullptr;
  check(avfilter_graph_parse2(_graph.get(), text.c_str(), &inputs, &outputs), "filter graph");
  check(avfilter_graph_config(_graph.get(), nullptr), "filter graph");
  _source = avfilter_graph_get_filter(_graph.get(), "abuffer@in");
  _sink = avfilter_graph_get_filter(_graph.get(), "abuffersink@out");
  if (_source == nullptr || _sink == nullptr) throw std::runtime_error("filter graph without ends");
}

FilterGraph::~FilterGraph() = default;

void FilterGraph::process(const float* const* in, float* const* out, std::size_t frames,
                          std::size_t block) {
  std::size_t done = 0;
  for (std::size_t at = 0; at < frames; at += block) {
    const std::size_t count = std::min(block, frames - at);
    _frame->format = AV_SAMPLE_FMT_FLTP;
    _frame->nb_samples = static_cast<int>(count);
    _frame->sample_rate = av_buffersink_get_sample_rate(_sink);
    _frame->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    check(av_frame_get_buffer(_frame.get(), 0), "frame");
    for (int c = 0; c < 2; ++c) std::memcpy(_frame->data[c], in[c] + at, count * sizeof(float));
    check(av_buffersrc_add_frame(_source, _frame.get()), "filter");
    while (av_buffersink_get_frame(_sink, _frame.get()) >= 0) {
      const auto got = static_cast<std::size_t>(_frame->nb_samples);
      if (done + got > frames) throw std::runtime_error("the filters made samples up");
      for (int c = 0; c < 2; ++c) std::memcpy(out[c] + done, _frame->data[c], got * sizeof(float));
      done += got;
      av_frame_unref(_frame.get());
    }
  }
  if (done != frames) throw std::runtime_error("the filters kept samples back");
}

}  // namespace velorin::bench

#include "library/queries/SearchPattern.h"

#include "foundation/Mutex.h"
#include "library/search/SearchTokenizer.h"

namespace velorin {
namespace {

// The cost of a search grows with its words. No name has so many.
constexpr std::size_t kMostBytes = 4096;
constexpr std::size_t kMostWords = 64;

/// What counts of the text. A cut inside a word leaves its beginning, which is looked for just so.
std::string_view countedPart(std::string_view text) {
  if (text.size() <= kMostBytes) return text;
  std::size_t end = kMostBytes;
  const auto isContinuation = [&](std::size_t at) {
    return (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
  };
  while (end > kMostBytes - 4 && isContinuation(end)) --end;
  return text.substr(0, end);
}

/// One set of tokenizers for all threads.
struct Shared {
  Mutex mutex;
  SearchTokenizer tokenizer GUARDED_BY(mutex);
};

Shared& shared() {
  static Shared shared;
  return shared;
}

}  // namespace

SearchPattern::SearchPattern(std::string_view text) {
  const MutexLock lock(shared().mutex);
  SearchTokenizer& tokenizer = shared().tokenizer;
  std::string match;
  for (const std::string& word : tokenizer.words(countedPart(text), kMostWords)) {
    if (!match.empty()) match += ' ';
    match += word + '*';
    std::vector<std::string> terms = tokenizer.terms(word);
    if (terms.size() > 1) _prefixes.reset();
    if (terms.size() == 1 && _prefixes) _prefixes->push_back(std::move(terms[0]));
  }
  if (!match.empty() && tokenizer.isPattern(match)) _match = std::move(match);
}

}  // namespace velorin

#include "library/search/FtsSegments.h"

namespace velorin {
namespace {

constexpr std::int64_t kTotalsRecord = 1;
constexpr std::int64_t kStructureRecord = 10;
constexpr std::size_t kStructureCookie = 4;  // bytes ahead of the numbers
constexpr std::size_t kPageHeader = 4;
constexpr int kSegmentShift = 37;  // a page is kept under its segment's id << 37, plus its number

// Terms of the main index, the only one without the option "prefix".
constexpr char kMainIndex = '0';

// In a position list, a number that is no position: the next one is that of a column.
constexpr std::byte kColumnMark{1};

void require(bool condition) {
  if (!condition) throw UnknownFtsFormat();
}

/// SQLite's variable-length integer: seven bits a byte, the highest first, all eight of a ninth.
std::uint64_t readLongVarint(std::span<const std::byte> bytes, std::size_t& at, std::size_t end) {
  std::uint64_t value = 0;
  for (int i = 0; i < 9; ++i) {
    require(at < end);
    const auto byte = std::to_integer<std::uint64_t>(bytes[at++]);
    if (i == 8) return (value << 8) | byte;
    value = (value << 7) | (byte & 0x7f);
    if (byte < 0x80) break;
  }
  return value;
}

/// Most are of one byte.
inline std::uint64_t readVarint(std::span<const std::byte> bytes, std::size_t& at,
                                std::size_t end) {
  if (at < end && bytes[at] < std::byte{0x80}) return std::to_integer<std::uint64_t>(bytes[at++]);
  return readLongVarint(bytes, at, end);
}

/// The number of positions in a part of a position list. Numbers are whole in each part.
std::uint32_t countPositions(std::span<const std::byte> bytes, std::size_t& at, std::size_t end,
                             bool& columnNext) {
  std::uint32_t count = 0;
  while (at < end) {
    if (!columnNext && bytes[at] == kColumnMark) {
      ++at;
      columnNext = true;
      continue;
    }
    readVarint(bytes, at, end);
    count += static_cast<std::uint32_t>(!columnNext);
    columnNext = false;
  }
  return count;
}

std::size_t readTwoBytes(std::span<const std::byte> bytes, std::size_t at) {
  return std::to_integer<std::size_t>(bytes[at]) << 8 | std::to_integer<std::size_t>(bytes[at + 1]);
}

sqlite::Blob record(sqlite::Reader& reader, std::int64_t id) {
  auto block = reader.first<sqlite::Blob>("SELECT block FROM tracks_fts_data WHERE id = ?", id);
  require(block.has_value());
  return std::move(*block);
}

/// The page on which the prefix's first term is, if it is in the segment at all.
std::int64_t firstPageOf(sqlite::Reader& reader, const FtsSegment& segment,
                         const std::string& prefix) {
  const auto bytes = std::as_bytes(std::span(prefix));
  const auto entry = reader.first<std::int64_t>(
      "SELECT pgno FROM tracks_fts_idx WHERE segid = ? AND term <= ? ORDER BY term DESC LIMIT 1",
      segment.id, sqlite::Blob(bytes.begin(), bytes.end()));
  // The lowest bit is a flag.
  return std::max(entry.value_or(0) >> 1, segment.firstPage);
}

}  // namespace

std::int64_t ftsSum(std::span<const std::byte> numbers) {
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < numbers.size();) sum += readVarint(numbers, at, numbers.size());
  require(sum <= std::numeric_limits<std::int64_t>::max());
  return static_cast<std::int64_t>(sum);
}

FtsTotals ftsTotals(sqlite::Reader& reader) {
  const sqlite::Blob block = record(reader, kTotalsRecord);
  std::size_t at = 0;
  readVarint(block, at, block.size());
  const std::span<const std::byte> bytes(block);
  return {ftsSum(bytes.first(at)), ftsSum(bytes.subspan(at))};
}

std::vector<FtsSegment> ftsSegments(sqlite::Reader& reader) {
  const auto version =
      reader.first<std::int64_t>("SELECT v FROM tracks_fts_config WHERE k = 'version'");
  require(version == 4);
  const sqlite::Blob block = record(reader, kStructureRecord);
  std::size_t at = kStructureCookie;
  const auto number = [&] { return readVarint(block, at, block.size()); };

  const std::uint64_t levels = number();
  // A second form of the record begins with a number far above any count of levels.
  require(levels <= 64);
  const std::uint64_t expected = number();
  number();  // the write counter
  std::uint64_t read = 0;
  std::vector<FtsSegment> segments;
  for (std::uint64_t level = 0; level < levels; ++level) {
    number();  // of segments that are being merged; they are read like the others
    const std::uint64_t count = number();
    require(count <= expected);
    const std::ptrdiff_t newest = std::ssize(segments);
    for (std::uint64_t i = 0; i < count; ++i) {
      FtsSegment segment{};
      for (auto* field : {&segment.id, &segment.firstPage, &segment.lastPage}) {
        const std::uint64_t value = number();
        require(value <= std::numeric_limits<std::int32_t>::max());
        *field = static_cast<std::int64_t>(value);
      }
      ++read;
      // A segment that was merged to its end has no pages. Within a level the oldest comes first.
      if (segment.lastPage > 0) segments.insert(segments.begin() + newest, segment);
    }
  }
  require(read == expected && at == block.size());
  return segments;
}

FtsSegmentCursor::FtsSegmentCursor(sqlite::Reader& reader, const FtsSegment& segment,
                                   std::string_view prefix)
    : _prefix(kMainIndex + std::string(prefix)),
      _nextPage((segment.id << kSegmentShift) + firstPageOf(reader, segment, _prefix)),
      _pages(
          reader.query("SELECT id, block FROM tracks_fts_data WHERE id BETWEEN ? AND ? ORDER BY id",
                       _nextPage, (segment.id << kSegmentShift) + segment.lastPage)) {}

bool FtsSegmentCursor::loadPage() {
  // A statement that has come to its end would begin anew.
  _isAtEnd = _isAtEnd || !_pages.next();
  if (_isAtEnd) return false;
  const sqlite::Row row = _pages.row();
  require(row.get<std::int64_t>(0) == _nextPage++);
  _page = row.get<std::span<const std::byte>>(1);
  require(_page.size() >= kPageHeader);
  _firstRow = readTwoBytes(_page, 0);
  _contentEnd = readTwoBytes(_page, 2);
  require(_contentEnd >= kPageHeader && _contentEnd <= _page.size());

  _termOffsets.clear();
  _nextTerm = 0;
  std::size_t offset = 0;
  for (std::size_t at = _contentEnd; at < _page.size();) {
    const std::uint64_t step = readVarint(_page, at, _page.size());
    require(step > 0 && step < _contentEnd - offset);
    offset += step;
    _termOffsets.push_back(offset);
  }
  require(_termOffsets.empty() || _termOffsets[0] >= kPageHeader);
  require(_firstRow == 0 || (_firstRow >= kPageHeader && _firstRow < termOffset(0)));
  return true;
}

/// Where a term begins, or where the content ends.
std::size_t FtsSegmentCursor::termOffset(std::size_t index) const {
  return index < _termOffsets.size() ? _termOffsets[index] : _contentEnd;
}

bool FtsSegmentCursor::nextTerm() {
  while (nextRows()) {
  }
  while (true) {
    while (_nextTerm == _termOffsets.size()) {
      if (!loadPage()) return false;
    }
    readTerm();
    const int order = _term.compare(0, _prefix.size(), _prefix);
    if (order > 0) return false;
    _hasMoreRows = order == 0;
    if (_hasMoreRows) return true;
  }
}

/// A page's first term is whole, the others repeat the beginning of the one before.
void FtsSegmentCursor::readTerm() {
  const std::size_t end = termOffset(_nextTerm + 1);
  std::size_t at = termOffset(_nextTerm);
  const std::size_t kept = _nextTerm == 0 ? 0 : readVarint(_page, at, end);
  require(kept <= _term.size());
  const std::size_t added = readVarint(_page, at, end);
  require(added <= end - at);
  _term.resize(kept);
  _term.append(reinterpret_cast<const char*>(_page.data()) + at, added);
  ++_nextTerm;
  _doclist = at + added;
  _lastRow = 0;
  _rows.clear();
}

/// The rows of a term go on on the next pages until one has a term.
bool FtsSegmentCursor::nextRows() {
  // A row whose positions were cut by the end of the page has not been given out.
  _rows.erase(_rows.begin(), _rows.end() - static_cast<std::ptrdiff_t>(_pending > 0));
  while (_hasMoreRows) {
    if (_doclist != 0) {
      readRows(std::exchange(_doclist, 0), termOffset(_nextTerm));
    } else if (loadPage()) {
      readRest(_firstRow != 0 ? _firstRow : termOffset(0));
      if (_firstRow != 0) readRows(_firstRow, termOffset(0));
    } else {
      break;
    }
    _hasMoreRows = _nextTerm == _termOffsets.size();
    if (!rows().empty()) return true;
  }
  _hasMoreRows = false;
  require(_pending == 0);
  return !_rows.empty();
}

/// The first row of a doclist, and the first on a page, is given as such, any other as the
/// distance from the one before.
void FtsSegmentCursor::readRows(std::size_t from, std::size_t end) {
  std::size_t at = from;
  std::uint64_t before = 0;
  while (at < end) {
    const std::uint64_t next = before + readVarint(_page, at, end);
    const auto row = static_cast<std::int64_t>(next);
    require(row > _lastRow);
    before = next;
    _lastRow = row;
    // Its lowest bit says that an older segment's entry is void, as it is anyway.
    const std::uint64_t size = readVarint(_page, at, end) >> 1;
    const std::size_t here = std::min<std::uint64_t>(size, end - at);
    _columnNext = false;
    _rows.push_back({row, countPositions(_page, at, at + here, _columnNext)});
    _pending = size - here;
  }
  // Only the end of a page cuts a position list.
  require(_pending == 0 || end == _contentEnd);
}

/// What is left of a position list that began on the page before.
void FtsSegmentCursor::readRest(std::size_t end) {
  std::size_t at = kPageHeader;
  require(_pending >= end - at);
  _pending -= end - at;
  require(_pending == 0 || end == _contentEnd);
  if (at < end) _rows.back().count += countPositions(_page, at, end, _columnNext);
}

}  // namespace velorin

#include "library/rows/PinnedItemRow.h"

namespace velorin {

sqlite::RowReader& operator>>(sqlite::RowReader& reader, PinnedItem& item) {
  return reader >> item.id >> item.type >> item.referenceId >> item.position >> item.createdAt;
}

}  // namespace velorin

// How a row of "pinnedItems" becomes a record.
#pragma once

#include "library/sqlite/Statement.h"
#include "records/PinnedItem.h"

namespace velorin {

sqlite::RowReader& operator>>(sqlite::RowReader& reader, PinnedItem& item);

namespace rows {

/// In the order in which the operator reads them.
inline const std::string kPinnedItemColumns =
    "pinnedItems.id, pinnedItems.type, pinnedItems.referenceId, pinnedItems.position, "
    "pinnedItems.createdAt";

}  // namespace rows
}  // namespace velorin

#include "library/rows/PlaylistRow.h"

namespace velorin {

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Playlist& playlist) {
  return reader >> playlist.id >> playlist.name >> playlist.isSmartPlaylist >> playlist.rulesJSON >>
         playlist.isHidden >> playlist.createdAt >> playlist.updatedAt;
}

}  // namespace velorin

// The place of a control tree, which outlives a kvbridged that was killed.
//
//   DIR       a mount of its own, over which the tree is mounted. It is shared: what is mounted there appears in the
//             namespaces that were made from this one too, so that a living agent sees the tree of the next kvbridged
//   DIR.lock  locked while a kvbridged serves DIR. It holds the filters in force, a line a bridge, since the next
//             kvbridged must not let discovery pass that an agent was to see
//
// Only root can put something else in the place of either: all folders on the way are looked at.
#ifndef PLATFORM_KVBRIDGED_TREE_PLACE_H
#define PLATFORM_KVBRIDGED_TREE_PLACE_H

#include "base/descriptor.h"
#include "platform/kvbridged/modules.h"

#include <string>

namespace kvbridged {

class tree_place {
public:
  // Takes the place: makes what is missing, refuses where a kvbridged is alive, clears what a killed one left. Throws
  // fatal.
  explicit tree_place(const std::string& directory);
  // Leaves nothing behind, unless filters are in force: then an agent goes on with the next kvbridged.
  ~tree_place();
  tree_place(const tree_place&) = delete;
  tree_place& operator=(const tree_place&) = delete;

  // Absolute, without links.
  const std::string& path() const { return path_; }

  filter_owners filters() const;
  // Throws fatal when they cannot be kept.
  void filters_keep(const filter_owners& filters);

private:
  void mount_point_make();

  std::string path_;
  descriptor lock_;
  bool filters_in_force_ = false;
};

// The absolute path of the tree that a living kvbridged serves at `directory`. Throws fatal when there is none, or when
// others than root could have put it there.
std::string tree_served(const std::string& directory);

}  // namespace kvbridged

#endif

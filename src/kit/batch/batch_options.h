#ifndef MORVA_KIT_BATCH_BATCH_OPTIONS_H_
#define MORVA_KIT_BATCH_BATCH_OPTIONS_H_

#include <string>
#include <vector>

namespace morva::batch {

/// One of several equal parts of the projects: every `count`-th one, from the `index`-th on.
struct Shard {
  unsigned index = 0;  ///< below `count`
  unsigned count = 0;  ///< 0: no shard, all projects
};

/// What a run over project folders is to do.
struct BatchOptions {
  std::vector<std::string> folders;  ///< project folders, or folders of project folders
  std::string outDir;                ///< empty: each project's own folder "output"
  bool device = false;               ///< with the recorded calibration applied
  bool force = false;                ///< redo what is done
  int jobs = 1;                      ///< projects at a time
  Shard shard;                       ///< asks for `outDir`
};

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_BATCH_OPTIONS_H_

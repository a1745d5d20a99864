// A frame walk's outcome in one line per copy, for comparison with hand-derived expectations.
#ifndef HALBD_TESTS_FRAME_WALK_WALK_OUTCOME_H
#define HALBD_TESTS_FRAME_WALK_WALK_OUTCOME_H

#include <string>
#include <vector>

#include "sim/frame_walk.h"

// "port:frame" per copy, or the single line "drop@stage: reason".
inline std::vector<std::string> Outcome(const sim::FrameWalk& walk) {
  if (walk.dropped)
    return {"drop@" + walk.dropStage + ": " + walk.dropReason};
  std::vector<std::string> copies;
  for (const sim::FrameCopy& copy : walk.copies) {
    copies.push_back(std::to_string(copy.port) + ":" + sim::FormatFrame(copy.frame));
  }
  return copies;
}

#endif  // HALBD_TESTS_FRAME_WALK_WALK_OUTCOME_H

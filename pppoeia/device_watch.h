// What a worker does about a pseudo device that goes away under it and may come back.
#ifndef PPPOEIA_DEVICE_WATCH_H
#define PPPOEIA_DEVICE_WATCH_H

struct pppoeia_bridge;

// Belongs to one worker. A device that is taken down and up again needs nothing of it; one that is deleted and made
// again under the same index is bound anew.
class device_watch {
public:
  // The device is there.
  explicit device_watch(const pppoeia_bridge& bridge);

  // A receive has failed with `error` (an errno value). Logs a loss, once until records come again.
  void failed(int error);
  // Records have come.
  void received() { lost_ = false; }
  // Nothing has come during a whole wait. Tries to get a lost device back.
  void waited() const;

private:
  const pppoeia_bridge& bridge_;
  int index_ = -1;
  bool lost_ = false;
};

#endif

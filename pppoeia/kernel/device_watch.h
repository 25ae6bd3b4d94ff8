// What a worker does about a pseudo device that goes away under it and may come back.
#ifndef PPPOEIA_KERNEL_DEVICE_WATCH_H
#define PPPOEIA_KERNEL_DEVICE_WATCH_H

struct pppoeia_bridge;

// Belongs to one worker, and is called without the bridge's lock. A device that is taken down and up again needs
// nothing of it; one that is deleted and made again under the same index is bound anew. When neither is so, the kernel
// modules are asked for all of it, as when the bridge was added: where they are played by a process, a new one has to
// hear it. The bridge keeps its configuration and counters meanwhile.
class device_watch {
public:
  // The device is there.
  explicit device_watch(pppoeia_bridge& bridge);

  // A receive has failed with `error` (an errno value). Logs a loss, once until the device is back.
  void failed(int error);
  // Records have come.
  void received() { lost_ = false; }
  // Nothing has come during a whole wait. Looks after the device now and then, and tries to get a lost one back.
  void waited();

private:
  void lose();
  bool restore(int control_file);
  void compare(int control_file) const;

  pppoeia_bridge& bridge_;
  int index_ = -1;
  bool lost_ = false;
  unsigned waits_ = 0;
};

#endif

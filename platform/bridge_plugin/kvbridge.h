// The bridge plug-in as the framework sees it: its link-aggregation tests, which operators' messages reach.
// A node with the vendor's plug-in links that instead (CMake option PPPOEIA_BRIDGE_PLUGIN_LIBRARY).
#ifndef PLATFORM_BRIDGE_PLUGIN_KVBRIDGE_H
#define PLATFORM_BRIDGE_PLUGIN_KVBRIDGE_H

class kvbridge {
public:
  // Runs step 1 (initialise), 2 (add ports), 3 (ports up) or 4 (show) of the link-aggregation test. Any thread.
  static void lagTest(int step);
  // What is logged of link aggregation: bit 0 configuration, bit 1 its frames. Any thread.
  static void issLaDebugMask(int mask);
};

#endif

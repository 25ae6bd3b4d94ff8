// The node information library as the framework sees it: which numbered capabilities of the node are active.
// A node with the vendor's library links that instead (CMake option PPPOEIA_NODEINFO_LIBRARY).
#ifndef PLATFORM_NODEINFO_NODEINFO_H
#define PLATFORM_NODEINFO_NODEINFO_H

#ifdef __cplusplus
extern "C" {
#endif

// 1 when the node's capability of that number is active, else 0. Any thread.
int isActive(int capability);

#ifdef __cplusplus
}
#endif

#endif

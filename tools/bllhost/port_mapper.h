// What the node's port mapper says of this host.
#pragma once

// True when it names a port of the framework's RPC program. Waits two seconds at most.
bool mapper_knows_us();

// The dynamic loader's lock, after a library whose constructors have thrown. Not installed.
#pragma once

// Gives back the loader's lock that dlopen() holds while it runs constructors and keeps when one of them throws past
// it. To be called by the thread that has caught the exception, outside any other dlopen(). True if the lock was found
// and given back; false leaves everything as it was: then no other thread of the process can load or look up anything.
bool releaseLoaderLock();

// What a plug-in was built against. The classes of these headers must look the same to a plug-in and to the host that
// loads it, so every source that includes this file refers to a symbol with the number of their shape in its name. A
// host of another shape has no such symbol: the loader refuses the library before any of its code runs, and says
// "undefined symbol: bll_framework_abi_2". Build the plug-in anew then.
//
// The number goes up with every change to a class, virtual or inline function or nested type of an installed header.
#ifndef RTE_BLL_CORE_FRAMEWORK_ABI_H
#define RTE_BLL_CORE_FRAMEWORK_ABI_H

extern "C" const char bll_framework_abi_2;

namespace {
[[gnu::used]] const char* const builtAgainstFramework = &bll_framework_abi_2;
}

#endif

// One object of a class for the whole process, built on first use, once, whichever thread comes first.
#ifndef RTE_BLL_CORE_SINGLETON_H
#define RTE_BLL_CORE_SINGLETON_H

// The object is never destroyed: threads and static objects of plug-in libraries may use it until the process is gone.
// Libraries loaded at run time share the host's object, because the host exports its symbols.
template <typename T>
class singleton {
public:
  singleton() = delete;

  // Never fails; what the constructor of T throws reaches the caller, and the next call tries again.
  static T& instance()
  {
    static T* const object = new T;
    return *object;
  }
};

#endif

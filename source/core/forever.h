// Private: an object built at load and never destroyed, so that library-wide services outlive
// the host's static objects. Construction is the caller's; the object is never released.
#pragma once

#include <new>

namespace VORX {

template <class T> class _tForever {
public:
  template <class... A> explicit _tForever(A... args) { ::new (m_bytes) T(args...); }
  T & operator*() { return *std::launder(reinterpret_cast<T *>(m_bytes)); }
  T * operator->() { return &**this; }

private:
  alignas(T) unsigned char m_bytes[sizeof(T)];
};

} // namespace VORX

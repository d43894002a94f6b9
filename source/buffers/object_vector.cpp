// The library's instantiations of the handle vector, and the vector of objects keyed by class.
#include <vorx/buffers.h>

namespace VORX::Buffers {

template class CPObjectVector<CPObjectMemory>;

CPTypedObjectVector::~CPTypedObjectVector() = default;

std::size_t CPTypedObjectVector::_position(std::size_t typeId) const {
  std::size_t const count = m_vector.GetNItems();
  if (count == 0) {
    return static_cast<std::size_t>(-1);
  }
  // An empty element counts as type 0.
  auto const type = [this](std::size_t i) { return m_vector[i].GetTypeID(); };
  if (typeId <= type(0)) {
    return 0;
  }
  std::size_t const last = count - 1;
  if (typeId > type(last)) {
    return count;
  }
  std::size_t low = 0;
  std::size_t high = last;
  while (high - low > 1) {
    std::size_t const middle = low + (high - low) / 2;
    if (type(middle) < typeId) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return high;
}

bool CPTypedObjectVector::Set(CPObjectMemory const & object) {
  if (!object) {
    return false;
  }
  std::size_t const typeId = object.GetTypeID();
  std::size_t const pos = _position(typeId);
  if (pos < m_vector.GetNItems() && m_vector[pos].GetTypeID() == typeId) {
    CPObjectMemory copy(object);
    if (!copy.clone()) {
      return false;
    }
    m_vector[pos] = copy;
    return true;
  }
  CPObjectMemory copy(object);
  if (!copy.clone()) {
    return false;
  }
  return m_vector.Insert(copy, pos);
}

CPObjectMemory CPTypedObjectVector::Get(std::size_t typeId) const {
  std::size_t const pos = _position(typeId);
  if (pos >= m_vector.GetNItems() || m_vector[pos].GetTypeID() != typeId) {
    return CPObjectMemory();
  }
  CPObjectMemory copy(m_vector[pos]);
  if (!copy.clone()) {
    return CPObjectMemory();
  }
  return copy;
}

bool CPTypedObjectVector::Delete(std::size_t typeId) {
  std::size_t const pos = _position(typeId);
  if (pos < m_vector.GetNItems() && m_vector[pos].GetTypeID() == typeId) {
    m_vector.Delete(pos, true);
  }
  return true;
}

} // namespace VORX::Buffers

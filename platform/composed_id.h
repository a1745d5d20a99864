// Common chip library contract: the key of the reverse table from a chip gport to its identifier.
#ifndef HALBD_PLATFORM_COMPOSED_ID_H
#define HALBD_PLATFORM_COMPOSED_ID_H

// A pair of values ordered lexicographically: the first members decide, the second only on a tie.
// With int members both compare signed, so {5, -1} sorts before {5, 0}.
template <typename T>
struct composed_id {
  T first;
  T second;
};

template <typename T>
inline bool operator<(const composed_id<T>& a, const composed_id<T>& b) {
  if (a.first < b.first)
    return true;
  if (b.first < a.first)
    return false;
  return a.second < b.second;
}

template <typename T>
inline bool operator==(const composed_id<T>& a, const composed_id<T>& b) {
  return a.first == b.first && a.second == b.second;
}

#endif  // HALBD_PLATFORM_COMPOSED_ID_H

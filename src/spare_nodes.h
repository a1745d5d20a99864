// A bounded stack of the nodes of erased set or map entries (C++17 node handles), from which the
// next insertion takes its node instead of allocating one.
#ifndef HALBD_SRC_SPARE_NODES_H
#define HALBD_SRC_SPARE_NODES_H

#include <array>
#include <cstddef>
#include <utility>

// Books that are mostly changed by replacing an entry (a rule deleted and another added, an
// interface taken out of one VLAN and put into another) then cost no allocator round trip. A fixed
// array and a count: the test on the way of every insertion and erasure is one compare, and
// keeping a node never allocates. Slots at and above the count hold empty handles.
template <typename Node, std::size_t Capacity>
class SpareNodes {
 public:
  bool empty() const { return count == 0; }
  bool full() const { return count == Capacity; }

  // The node to insert next; precondition: !empty(). An insertion that takes it leaves it empty.
  Node& top() { return nodes[count - 1]; }
  // Forgets the top slot once an insertion took its node; precondition: top() is empty.
  void popTaken() { --count; }
  // Precondition: !full().
  void push(Node&& node) { nodes[count++] = std::move(node); }

 private:
  std::array<Node, Capacity> nodes{};
  std::size_t count = 0;
};

#endif  // HALBD_SRC_SPARE_NODES_H

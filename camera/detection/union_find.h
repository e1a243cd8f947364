#pragma once

#include <vector>

namespace kova::camera {

/// The representative of element i in a forest of disjoint sets, by path halving (Tarjan and van
/// Leeuwen, JACM 1984).
/// @param parent  of every element; a representative is its own
inline int root(std::vector<int>& parent, int i) {
    while (parent[i] != i) {
        parent[i] = parent[parent[i]];
        i = parent[i];
    }
    return i;
}

}  // namespace kova::camera

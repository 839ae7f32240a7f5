#pragma once

#include <algorithm>
#include <vector>

class QENPerformanceMetric;

// Nothing forbids a cycle in a metric tree (a metric added under its own descendant). The walks
// that recurse through children (invalidation, event routing, the debug description, span
// export) skip a metric that the same kind of walk is already visiting on this thread, instead
// of recursing forever. Acyclic trees never meet such a metric. A kind of walk is named by a tag
// type, e.g. QENTreeWalk<struct InvalidationWalk>; `children` is any range of metric pointers.
template <class Walk>
class QENTreeWalk {
 public:
  template <class Children, class Visit>
  static void visitChildren(const QENPerformanceMetric* parent, const Children& children,
                            const Visit& visit) {
    if (children.empty()) {
      return;
    }
    std::vector<const QENPerformanceMetric*>& visiting = metricsBeingVisited();
    visiting.push_back(parent);
    for (const auto& child : children) {
      if (std::find(visiting.begin(), visiting.end(), child.get()) == visiting.end()) {
        visit(*child);
      }
    }
    visiting.pop_back();
  }

 private:
  static std::vector<const QENPerformanceMetric*>& metricsBeingVisited() {
    thread_local std::vector<const QENPerformanceMetric*> metrics;
    return metrics;
  }
};

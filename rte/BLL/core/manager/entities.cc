#include "rte/BLL/core/manager/entities.h"

#include "rte/BLL/core/manager/log_line.h"
#include <algorithm>
#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/depth_first_search.hpp>

namespace {

// An edge points from an entity to one that it needs. Neighbours keep the order in which they were named, so that the
// order of starting follows from the configuration alone.
using graph_t = boost::adjacency_list<boost::vecS, boost::vecS, boost::directedS>;
using vertex_t = boost::graph_traits<graph_t>::vertex_descriptor;

// Notes the vertices as they are finished: what a vertex needs is finished before it.
class orderRecorder_t : public boost::default_dfs_visitor {
public:
  orderRecorder_t(std::vector<vertex_t>& finished, bool& cycle) : finished_(finished), cycle_(cycle) {}
  void finish_vertex(vertex_t vertex, const graph_t&) { finished_.push_back(vertex); }
  void back_edge(const graph_t::edge_descriptor&, const graph_t&) { cycle_ = true; }

private:
  std::vector<vertex_t>& finished_;
  bool& cycle_;
};

using namedEntities_t = std::vector<std::pair<std::string, BLEntity*>>;

graph_t dependenceGraph(const namedEntities_t& entities)
{
  graph_t graph(entities.size());
  for (vertex_t i = 0; i < entities.size(); ++i) {
    const auto& [name, entity] = entities[i];
    std::list<std::string> dependences;
    callEntity(name, [&, e = entity] { e->getDependences(dependences); });
    for (const std::string& needed : dependences) {
      const auto row = std::ranges::lower_bound(entities, needed, {}, &namedEntities_t::value_type::first);
      if (row != entities.end() && row->first == needed)
        boost::add_edge(i, static_cast<vertex_t>(row - entities.begin()), graph);
    }
  }
  return graph;
}

}  // namespace

void entityTable_t::enter(BLEntity& entity)
{
  const mutex_guard guard(mutex_);
  entities_[entity.name] = &entity;
}

bool entityTable_t::resolveDependences(std::list<std::string>& order) const
{
  namedEntities_t entities;
  {
    const mutex_guard guard(mutex_);
    entities.assign(entities_.begin(), entities_.end());
  }
  const graph_t graph = dependenceGraph(entities);
  std::vector<vertex_t> finished;
  bool cycle = false;
  boost::depth_first_search(graph, boost::visitor(orderRecorder_t(finished, cycle)));
  if (cycle) {
    logAt(LogImpl::notice) << "\nGraph of initialization dependences has cycle(s).\n";
    return false;
  }
  order.clear();
  for (const vertex_t vertex : finished)
    order.push_back(entities[vertex].first);
  return true;
}

std::vector<entityTable_t::row_t> entityTable_t::startOrder() const
{
  std::list<std::string> names;
  resolveDependences(names);
  std::vector<row_t> order;
  const mutex_guard guard(mutex_);
  for (const std::string& name : names)
    order.push_back({name, entities_.at(name)});
  return order;
}

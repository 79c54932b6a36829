// A replica of its own for each test, with a root and nothing else.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "service/replica/Replica.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {

class ReplicaFixture : public ::testing::Test {
 protected:
  ReplicaFixture() : replica(directory.path()) {
    Node root;
    root.id = kRootNode;
    root.kind = NodeKind::folder;
    root.identifier = "root";
    write([&](ReplicaWriter& writer) { writer.insert(root); });
  }

  template <typename Function>
  auto read(const Function& function) {
    return replica.read(function);
  }

  void write(const Replica::WriteFunction& function) {
    replica.write(Durability::eventual, function);
  }

  // An empty identifier: the host does not know it.
  NodeId add(const std::string& name, const std::string& identifier, NodeId parent = kRootNode,
             NodeKind kind = NodeKind::file) {
    Node node;
    node.kind = kind;
    node.parent = parent;
    node.name = node.filename = name;
    node.identifier = identifier;
    node.contentVersion = "v1";
    node.size = kind == NodeKind::file ? 5 : 0;
    write([&](ReplicaWriter& writer) { node.id = writer.insert(node); });
    return node.id;
  }

  NodeId addFolder(const std::string& name, NodeId parent = kRootNode) {
    return add(name, "f:" + name, parent, NodeKind::folder);
  }

  std::optional<Node> row(NodeId id) {
    return read([&](ReplicaReader& reader) { return reader.node(id); });
  }

  TemporaryDirectory directory;
  Replica replica;
};

}  // namespace tulo::test

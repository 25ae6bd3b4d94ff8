// Doubly linked lists through the nodes' own `next` and `prev`, ascending by `vlan_id` without duplicates.
#ifndef PPPOEIA_LIST_H
#define PPPOEIA_LIST_H

#include <cstdint>
#include <new>

// The node of that id, or null.
template <typename Node>
Node* list_find(Node* head, uint16_t vid)
{
  for (Node* node = head; node && node->vlan_id <= vid; node = node->next)
    if (node->vlan_id == vid)
      return node;
  return nullptr;
}

// Links `node`, whose id is not there yet, before the first of a greater id.
template <typename Node>
void list_link(Node*& head, Node* node)
{
  Node* before = nullptr;
  Node* after = head;
  while (after && after->vlan_id < node->vlan_id) {
    before = after;
    after = after->next;
  }
  node->prev = before;
  node->next = after;
  if (after)
    after->prev = node;
  (before ? before->next : head) = node;
}

template <typename Node>
void list_unlink(Node*& head, Node* node)
{
  (node->prev ? node->prev->next : head) = node->next;
  if (node->next)
    node->next->prev = node->prev;
}

// Frees every node of a list whose nodes were made by new, and leaves it empty.
template <typename Node>
void list_free(Node*& head)
{
  while (Node* node = head) {
    head = node->next;
    delete node;
  }
}

#endif

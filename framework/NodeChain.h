// The two operations shared by the framework's singly linked lists (the
// parameter entries of a list and the members of a flow): append at the tail
// and free every node. Nodes are plain structs with a `next` pointer.
#pragma once

template <typename Node>
void AppendNode(Node*& head, Node*& tail, Node* node) {
  if (tail == nullptr) {
    head = node;
  } else {
    tail->next = node;
  }
  tail = node;
}

// Frees the chain from head on and leaves head and tail null.
template <typename Node>
void DeleteNodes(Node*& head, Node*& tail) {
  while (head != nullptr) {
    Node* next = head->next;
    delete head;
    head = next;
  }
  tail = nullptr;
}

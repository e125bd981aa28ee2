// A singly linked list of fixed-size elements whose nodes come from a pool allocated once.
//
// Ownership: the list owns its nodes and their payload bytes, never what the payload points at. A
// payload pointer is valid until its node is removed.
// Threads: none inside; the router guards membership with m_mutex_list.
#pragma once

#include <cstdint>

namespace OstrandService {

// A node; its payload lies right behind it.
struct ListNode {
  ListNode* next;  // null at the end

  // The payload: unit_size bytes, aligned like a pointer.
  char* data() { return reinterpret_cast<char*>(this + 1); }
};

class List {
 public:
  static constexpr uint32_t kCapacity = 1024;

  // unit_size: bytes of one payload. The pool holds kCapacity nodes; if it cannot be allocated, the
  // list has capacity 0 and every operation that adds returns null.
  explicit List(uint32_t unit_size);
  ~List();
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  // Each adds a zeroed payload and returns it; null when all nodes are in use.
  void* PushBack();
  void* PushFront();
  void* InsertAfter(ListNode* node);  // null for null. REQUIRES: else node is in the list

  void* Front();                             // payload of the first node, null when empty
  ListNode* Begin() { return m_list_head; }  // null when empty

  // Each unlinks a node and returns it to the pool; the payload bytes are not touched. Nothing
  // happens when there is no such node.
  void PopFront();
  void PopBack();                    // O(n)
  void RemoveAfter(ListNode* node);  // the node behind `node`
  void Remove(ListNode* node);       // O(n); ignored when null or not in the list
  void Clear();

  uint32_t GetUsed() const { return m_used; }
  uint32_t GetCapacity() const { return m_capacity; }
  uint32_t GetUnitMaxSize() const { return m_unit_size; }

 private:
  ListNode* TakeFreeNode();
  void Unlink(ListNode* previous, ListNode* node);

  ListNode* m_list_head = nullptr;
  ListNode* m_list_end = nullptr;
  ListNode* m_free_node = nullptr;
  uint32_t m_capacity = 0;
  uint32_t m_used = 0;
  uint32_t m_unit_size = 0;
  char* m_pool = nullptr;
};

}  // namespace OstrandService

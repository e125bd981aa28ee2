#include "service_api/list.h"

#include <cstring>
#include <new>

namespace OstrandService {
namespace {

size_t NodeSize(uint32_t unit_size) {
  const size_t size = sizeof(ListNode) + unit_size;
  return (size + alignof(ListNode) - 1) / alignof(ListNode) * alignof(ListNode);
}

}  // namespace

List::List(uint32_t unit_size) : m_unit_size(unit_size) {
  const size_t node_size = NodeSize(unit_size);
  m_pool = static_cast<char*>(::operator new(node_size* kCapacity, std::nothrow));
  if (m_pool == nullptr) {
    return;
  }
  m_capacity = kCapacity;
  for (uint32_t i = kCapacity; i > 0; --i) {
    m_free_node = ::new (m_pool + node_size * (i - 1)) ListNode{m_free_node};
  }
}

List::~List() { ::operator delete(m_pool); }

ListNode* List::TakeFreeNode() {
  ListNode* node = m_free_node;
  if (node != nullptr) {
    m_free_node = node->next;
    std::memset(node->data(), 0, m_unit_size);
    ++m_used;
  }
  return node;
}

void* List::PushBack() {
  if (m_list_end == nullptr) {
    return PushFront();
  }
  return InsertAfter(m_list_end);
}

void* List::PushFront() {
  ListNode* node = TakeFreeNode();
  if (node == nullptr) {
    return nullptr;
  }
  node->next = m_list_head;
  m_list_head = node;
  if (m_list_end == nullptr) {
    m_list_end = node;
  }
  return node->data();
}

void* List::InsertAfter(ListNode* node) {
  if (node == nullptr) {
    return nullptr;
  }
  ListNode* added = TakeFreeNode();
  if (added == nullptr) {
    return nullptr;
  }
  added->next = node->next;
  node->next = added;
  if (m_list_end == node) {
    m_list_end = added;
  }
  return added->data();
}

void* List::Front() { return m_list_head != nullptr ? m_list_head->data() : nullptr; }

void List::Unlink(ListNode* previous, ListNode* node) {
  (previous != nullptr ? previous->next : m_list_head) = node->next;
  if (m_list_end == node) {
    m_list_end = previous;
  }
  node->next = m_free_node;
  m_free_node = node;
  --m_used;
}

void List::PopFront() {
  if (m_list_head != nullptr) {
    Unlink(nullptr, m_list_head);
  }
}

void List::PopBack() { Remove(m_list_end); }

void List::RemoveAfter(ListNode* node) {
  if (node != nullptr && node->next != nullptr) {
    Unlink(node, node->next);
  }
}

void List::Remove(ListNode* node) {
  ListNode* previous = nullptr;
  for (ListNode* it = m_list_head; it != nullptr; previous = it, it = it->next) {
    if (it == node) {
      Unlink(previous, node);
      return;
    }
  }
}

void List::Clear() {
  while (m_list_head != nullptr) {
    PopFront();
  }
}

}  // namespace OstrandService

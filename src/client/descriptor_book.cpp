#include "client/descriptor_book.h"

#include <cerrno>
#include <new>

namespace OstrandService {

DescriptorBook::Page::Page() {
  for (std::atomic<int>& entry : entries) {
    entry.store(kNone, std::memory_order_relaxed);
  }
}

DescriptorBook::~DescriptorBook() {
  for (Page* page = m_first.next.load(); page != nullptr;) {
    Page* const next = page->next.load();
    delete page;
    page = next;
  }
}

// fd: what opening answered. A descriptor for which there is no place is not opened.
int DescriptorBook::Enter(int fd) {
  if (fd < 0) {
    return fd;
  }
  for (Page* page = &m_first;; page = page->next.load()) {
    for (std::atomic<int>& entry : page->entries) {
      if (entry.load(std::memory_order_relaxed) == kNone) {
        entry.store(fd);
        return fd;
      }
    }
    if (page->next.load() == nullptr) {
      Page* const next = new (std::nothrow) Page;
      if (next == nullptr) {
        m_to.Close(fd);
        return -ENOMEM;
      }
      page->next.store(next);
    }
  }
}

int DescriptorBook::Close(int fd) {
  for (Page* page = &m_first; page != nullptr; page = page->next.load()) {
    for (std::atomic<int>& entry : page->entries) {
      if (entry.load(std::memory_order_relaxed) == fd) {
        entry.store(kNone);  // before: the number may be another's at once
        return m_to.Close(fd);
      }
    }
  }
  return m_to.Close(fd);
}

void DescriptorBook::CloseAll() {
  for (Page* page = &m_first; page != nullptr; page = page->next.load()) {
    for (std::atomic<int>& entry : page->entries) {
      const int fd = entry.exchange(kNone);
      if (fd != kNone) {
        m_to.Close(fd);
      }
    }
  }
}

}  // namespace OstrandService

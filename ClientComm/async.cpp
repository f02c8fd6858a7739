#include "ClientComm/async.h"

#include <utility>

#include "ClientComm/internal/query.h"

namespace clientcomm {

PendingQuery::PendingQuery() noexcept = default;

PendingQuery::PendingQuery(std::shared_ptr<Query> query) : query_(std::move(query)) {}

PendingQuery::~PendingQuery() { cancel(); }

PendingQuery::PendingQuery(PendingQuery&& other) noexcept = default;

PendingQuery& PendingQuery::operator=(PendingQuery&& other) noexcept {
  if (this == &other) return *this;
  cancel();
  query_ = std::move(other.query_);
  return *this;
}

bool PendingQuery::isPending() const noexcept { return query_ && query_->isPending(); }

// What the call-back holds may hold this handle.
void PendingQuery::cancel() noexcept {
  if (const auto query = std::exchange(query_, nullptr)) query->cancel();
}

void PendingQuery::detach() noexcept {
  if (const auto query = std::exchange(query_, nullptr)) query->keepItself();
}

}  // namespace clientcomm

#include "hana/job/lifeline_lock.h"

#include <utility>

namespace sap_hana {

void Lifeline_Lock::acquire(const std::string& resource_uuid, const std::string& database) {
  release();
  // The resource's own lock is held by data backups for their whole run; a database's has a name that no resource has.
  std::shared_ptr<Job_Mutex> mutex = Job_Mutex::get(resource_uuid + "/" + database);
  // Refused only to a thread that holds it already: a second executor on one thread goes on under the first one's.
  if (mutex->acquire() == 0) mutex_ = std::move(mutex);
}

void Lifeline_Lock::release() {
  if (!mutex_) return;
  static_cast<void>(mutex_->release());
  mutex_.reset();
}

}  // namespace sap_hana

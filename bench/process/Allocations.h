// Counts what is allocated, on all threads; operator new ends in malloc.
#pragma once

namespace allocations {

/// Since the process began.
long count();

} // namespace allocations

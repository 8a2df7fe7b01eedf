#pragma once

#include "library/FlowMeta.h"

namespace varnel::FigmaPublishableWork {

// Pins never posted or changed since, plus pending deletes: what a publish would send. Pins on
// screens missing from the board count too; only the board can tell, and publishing says so.
int count(const FlowMeta& meta);

} // namespace varnel::FigmaPublishableWork

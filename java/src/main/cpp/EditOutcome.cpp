#include "EditOutcome.h"

#include "interface/session/Cancellation.h"

EditOutcome outcomeWithoutResult(bool cancelled, double wallMs) {
  if (cancelled) return EditOutcome::Cancelled;
  // The budget's clock starts inside the segmentation, after the marks were
  // read, so an edit that ran out of it always took at least this long.
  return wallMs >= kSegmentationBudgetMs ? EditOutcome::TimedOut : EditOutcome::NoResult;
}

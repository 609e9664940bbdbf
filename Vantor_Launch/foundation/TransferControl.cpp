#include "foundation/TransferControl.h"

#include "foundation/LaunchError.h"

void Cancellation::throwIfCancelled() const {
    if (isCancelled())
        throw LaunchError::url(LaunchError::cancelled);
}

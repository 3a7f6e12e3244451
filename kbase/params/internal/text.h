// Text helpers shared by the parameter kinds (not exported).
#pragma once

#include "kbase/text/UtCString.h"

namespace kbase_params_internal {

// A copy of src in src's own encoding; a text in code page 0 (no code page of its own) is read as
// the user's code page.
UtCString OwnText(const UtCString& src);
// Replaces dst by OwnText(src) (an assignment would convert into dst's encoding instead).
void StoreText(UtCString& dst, const UtCString& src);
// The empty string handed out by readers that have no text to give.
const UtCString& EmptyText();

}  // namespace kbase_params_internal

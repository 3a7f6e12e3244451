#include "kbase/streams/UtStream.h"

// Out of line so that the virtual tables live in this library only.
UtStream::~UtStream() = default;
UtIStream::~UtIStream() = default;
UtOStream::~UtOStream() = default;

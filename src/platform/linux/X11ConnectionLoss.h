#pragma once

struct _XDisplay;

namespace murmurly::X11ConnectionLoss {

// What Xlib calls, on the thread that noticed, when a surviving connection's server is gone.
using LostHandler = void (*)(_XDisplay* display, void* data);

// Xlib's I/O error handler is one for the whole process, and the usual one (Xlib's own, or the one
// Qt installs) ends the process. The program's own side connections must outlive their server
// instead: for a connection handed to survive(), the process-wide handler returns, and Xlib calls
// `lost` where it would have ended the process; the Xlib call that failed then returns a failure.
// Other connections still go to the handler that was there before.
void survive(_XDisplay* display, LostHandler lost, void* data);

// After the connection is closed (closing may still notice the loss).
void forget(_XDisplay* display);

} // namespace murmurly::X11ConnectionLoss

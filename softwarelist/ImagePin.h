// Keeps this library mapped after the host's dlclose while the host still holds
// message elements that the component made. Such an element's virtual destructor
// is this library's code, so a reply kept past the unload would crash the host
// when it is destroyed once the code is unmapped.
#pragma once

// Called once the component object is gone. With live elements it marks this
// image RTLD_NODELETE for the rest of the process; with none it leaves it alone,
// so that dlclose unmaps it and an updated file at the same path loads afresh.
void PinImageWhileElementsLive();

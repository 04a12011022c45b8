#pragma once

// Each descriptor that the daemon opens, in whichever room, is close-on-exec, but for the standard
// ones.

// Raises the soft limit of descriptors as far as the hard limit lets, until those that no client
// can have (a descriptor of 1024 or more is refused) suffice for store, loader and log. A log line
// tells when they do not.
void raise_descriptor_limit();

// IPsec control.
#pragma once

extern "C" {

/// Ends the key-exchange daemon. @return ignored by every caller
int stop_ike(void);

/// Takes the IPsec stack out of the kernel. @param unit  0. @return ignored by every caller
int unload_ipsec(int unit);
}

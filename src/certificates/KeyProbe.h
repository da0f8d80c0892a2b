#pragma once

namespace certificates {

// Does the card work: lets the person pick a certificate of "MY" that is valid now and makes a signature with its key,
// which is checked with the certificate and thrown away. Nothing happens where nothing is picked. Throws
// std::runtime_error with the system's text if the key cannot be had or does not sign.
void ProbeChosenKey();

}  // namespace certificates

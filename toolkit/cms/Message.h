#pragma once
// The parts of messages. The code that reads them is the host's message service's too; here its names are ours.

#include "platform/cms/Algorithms.h"
#include "platform/cms/AttributeChecks.h"
#include "platform/cms/CertificateIds.h"
#include "platform/cms/ContentDigests.h"
#include "platform/cms/SignatureCheck.h"
#include "platform/cms/SignedDataReader.h"
#include "platform/cms/SignerInfo.h"

namespace toolkit::cms {

using namespace platform::cms;

}  // namespace toolkit::cms

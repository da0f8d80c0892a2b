#pragma once
// Names of attributes and their values for a report.

#include "toolkit/cms/Findings.h"
#include "toolkit/cms/Message.h"

namespace toolkit::cms {

// The attribute's name (its OID if it has none that we know) and members by its type: `oid` of a contentType, `digest`
// of a messageDigest in Base64, `time` of a signingTime as it stands, `hash` of a signing certificate reference in
// upper-case hexadecimal.
AttributeFindings DescribeAttribute(const Attribute& attribute);

}  // namespace toolkit::cms

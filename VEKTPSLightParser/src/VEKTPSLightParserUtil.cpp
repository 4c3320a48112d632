#include "VEKTPSLightParserUtil.h"

const IID IID_VEKITPSLightModel = VEKITPSLightModel::kIID;
const IID IID_VEKITPSIdBroker = VEKITPSIdBroker::kIID;
const IID IID_VEKITPSLight = VEKITPSLight::kIID;
const IID IID_VEKITPSLightView = VEKITPSLightView::kIID;

VEKTPSLightParserUtil::VEKTPSLightParserUtil() = default;
VEKTPSLightParserUtil::~VEKTPSLightParserUtil() = default;

extern "C" int TORVALE_RIMKIT_INTERNAL_VEKTPSLightParser() { return 1; }

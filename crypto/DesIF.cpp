#include "crypto/DesIF.h"

#include "KeyMaterial.h"

const unsigned char DesIF::MIXER1[56] = TESSAVANT_MIXER1;
const unsigned char DesIF::MIXER2[56] = TESSAVANT_MIXER2;
const unsigned char DesIF::MIXER3[56] = TESSAVANT_MIXER3;
const unsigned char DesIF::MIXER4[56] = TESSAVANT_MIXER4;

#include "crypto/Des3.h"

#include "KeyMaterial.h"

const unsigned char Des3::MIXER5[56] = TESSAVANT_MIXER5;
const unsigned char Des3::MIXER6[56] = TESSAVANT_MIXER6;
const unsigned char Des3::MIXER7[56] = TESSAVANT_MIXER7;
const unsigned char Des3::MIXER8[56] = TESSAVANT_MIXER8;
const unsigned char Des3::MIXER9[56] = TESSAVANT_MIXER9;
const unsigned char Des3::MIXER10[56] = TESSAVANT_MIXER10;
const unsigned char Des3::MIXER11[56] = TESSAVANT_MIXER11;
const unsigned char Des3::MIXER12[56] = TESSAVANT_MIXER12;
const unsigned char Des3::MIXER13[56] = TESSAVANT_MIXER13;
const unsigned char Des3::MIXER14[56] = TESSAVANT_MIXER14;
const unsigned char Des3::MIXER15[56] = TESSAVANT_MIXER15;
const unsigned char Des3::MIXER16[56] = TESSAVANT_MIXER16;
const unsigned char Des3::MIXER17[56] = TESSAVANT_MIXER17;
const unsigned char Des3::MIXER18[56] = TESSAVANT_MIXER18;

void Des3::password(const char* text) {
    // One state runs through all three keys; each key reads the text afresh.
    unsigned char state[64] = {};
    const unsigned char* const mixers[18] = {MIXER1,  MIXER2,  MIXER3,  MIXER4,  MIXER5,  MIXER6,
                                             MIXER7,  MIXER8,  MIXER9,  MIXER10, MIXER11, MIXER12,
                                             MIXER13, MIXER14, MIXER15, MIXER16, MIXER17, MIXER18};
    Des* const ciphers[3] = {&first, &second, &third};
    for (int k = 0; k < 3; ++k) {
        const char* position = text;
        for (int m = 0; m < 6; ++m)
            position = ciphers[k]->xmix(position, state, mixers[6 * k + m]);
        ciphers[k]->initialize(state);
    }
}

void Des3::encrypt(unsigned char* block) {
    first.encrypt(block);
    second.decrypt(block);
    third.encrypt(block);
}

void Des3::decrypt(unsigned char* block) {
    third.decrypt(block);
    second.encrypt(block);
    first.decrypt(block);
}

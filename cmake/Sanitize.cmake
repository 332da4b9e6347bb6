# Sanitizer build (AddressSanitizer and UndefinedBehaviorSanitizer).
option(TESSAVANT_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)

// The cipher work of one image request: unwrap the client key, then decrypt
// a 60-character reference with it.
#include <benchmark/benchmark.h>

#include <string>

#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "crypto/StringCrypto.h"

namespace {
void RequestCipherWork(benchmark::State& state) {
    const std::string password = "client-password-0123";
    const std::string reference = "https://images.example.test/gallery/2024/06/photo-00001.jpeg";
    const std::string key =
        StringCrypto(Copyright::getConstStr().c_str(), true).cipherHex(password);
    const std::string value = StringCrypto(password.c_str(), true).cipherHex(reference);
    if (reference.size() != 60 || Decryptor(key).decrypt(value) != reference) {
        state.SkipWithError("the reference does not decrypt");
        return;
    }
    for (auto _ : state) {
        Decryptor decryptor(key);
        benchmark::DoNotOptimize(decryptor.decrypt(value));
    }
}
BENCHMARK(RequestCipherWork);
}  // namespace

BENCHMARK_MAIN();

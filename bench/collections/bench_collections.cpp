// Scale of the map: loading a properties file of n keys, then get and set of every key,
// for n = 1k, 10k and 100k. Prints each time per key, the growth factor from one size to
// the next (10 times the keys should cost at most 12 times the time), and the 100k-key
// load against std::unordered_map<std::string, std::string> inserts of the same keys.
#include <velmora/collections/ListMap.h>
#include <velmora/collections/PropertiesFile.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

using namespace velmora;
using Clock = std::chrono::steady_clock;

namespace {

struct Times {
    double load = 0, get = 0, set = 0;  // seconds, best of the rounds
};

std::string keyOf(int i) {
    return "setting.group" + std::to_string(i % 97) + ".Key" + std::to_string(i);
}

template <typename F>
double best(int rounds, F f) {
    double b = 1e30;
    for (int r = 0; r < rounds; ++r) {
        auto t0 = Clock::now();
        f();
        b = std::min(b, std::chrono::duration<double>(Clock::now() - t0).count());
    }
    return b;
}

Times measure(int n, const std::string& path, std::vector<std::string>& keys) {
    keys.clear();
    std::string text;
    for (int i = 0; i < n; ++i) {
        keys.push_back(keyOf(i));
        text += keys.back() + "=value" + std::to_string(i) + "\n";
    }
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    Times t;
    std::unique_ptr<Map> map;
    t.load = best(5, [&] { map.reset(PropertiesFile::makeMap(path.c_str(), '=')); });
    char buf[64];
    long sink = 0;
    t.get = best(5, [&] {
        for (const std::string& k : keys)
            sink += map->get(k.c_str(), buf, sizeof buf, "")[5];
    });
    t.set = best(5, [&] {
        for (const std::string& k : keys)
            map->set(k.c_str(), "changed");
    });
    if (sink == 42) std::puts("");
    return t;
}

}  // namespace

int main() {
    std::string path = "bench_collections.properties";
    const int sizes[] = {1000, 10000, 100000};
    Times times[3];
    std::vector<std::string> keys;
    std::printf("%8s %14s %14s %14s\n", "keys", "load ns/key", "get ns/key", "set ns/key");
    for (int s = 0; s < 3; ++s) {
        times[s] = measure(sizes[s], path, keys);
        double n = sizes[s];
        std::printf("%8d %14.1f %14.1f %14.1f\n", sizes[s], times[s].load / n * 1e9,
                    times[s].get / n * 1e9, times[s].set / n * 1e9);
    }
    for (int s = 1; s < 3; ++s) {
        std::printf(
            "growth %dk -> %dk (10x keys): load x%.2f, get x%.2f, set x%.2f (target <= 12)\n",
            sizes[s - 1] / 1000, sizes[s] / 1000, times[s].load / times[s - 1].load,
            times[s].get / times[s - 1].get, times[s].set / times[s - 1].set);
    }
    // The peer: the same 100k keys and values inserted into std::unordered_map, and its
    // lookups at 10k and 100k keys, which show what the memory hierarchy alone costs.
    std::vector<std::string> values;
    for (int i = 0; i < 100000; ++i)
        values.push_back("value" + std::to_string(i));
    double peer = best(5, [&] {
        std::unordered_map<std::string, std::string> m;
        for (size_t i = 0; i < keys.size(); ++i)
            m[keys[i]] = values[i];
    });
    double peerGet[2];
    for (int s = 0; s < 2; ++s) {
        size_t n = s == 0 ? 10000 : 100000;
        std::unordered_map<std::string, std::string> m;
        for (size_t i = 0; i < n; ++i)
            m[keys[i]] = values[i];
        size_t sink = 0;
        peerGet[s] = best(5, [&] {
            for (size_t i = 0; i < n; ++i)
                sink += m.find(keys[i])->second.size();
        });
        if (sink == 42) std::puts("");
    }
    std::printf("std::unordered_map find: 10k %.1f ns/key, 100k %.1f ns/key, growth x%.2f\n",
                peerGet[0] / 1e4 * 1e9, peerGet[1] / 1e5 * 1e9, peerGet[1] / peerGet[0]);
    std::printf("100k keys: properties load %.2f ms, std::unordered_map inserts %.2f ms\n",
                times[2].load * 1e3, peer * 1e3);
    std::printf("load speed relative to std::unordered_map: %.2f (target >= 0.50)\n",
                peer / times[2].load);
    std::remove(path.c_str());
    return 0;
}

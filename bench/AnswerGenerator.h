// Deterministic generators of realistic search service answers for the
// benchmarks: the same seed gives the same text on every machine.
#ifndef BENCH_ANSWERGENERATOR_H_
#define BENCH_ANSWERGENERATOR_H_

#include <cstdint>
#include <string>

namespace bench {

// A POI list answer with `pois` full POIs (CJK names and addresses,
// telephones, "show" and "ext"."detail_info" sections), psrs and suggested
// queries. About 1.2 KB per POI.
std::string PoiListAnswer(int pois, uint32_t seed);

// A multi-area answer of `searches` sub-searches with `pois_each` POIs each.
std::string AreaMultiAnswer(int searches, int pois_each, uint32_t seed);

// Route-address answers, first and second form: start, end and
// `waypoints` way points, a mix of candidate cities and places.
std::string RouteAddrFirstForm(int waypoints, uint32_t seed);
std::string RouteAddrSecondForm(int waypoints, uint32_t seed);

// An indoor answer with `pois` POIs.
std::string IndoorAnswer(int pois, uint32_t seed);

}  // namespace bench

#endif  // BENCH_ANSWERGENERATOR_H_

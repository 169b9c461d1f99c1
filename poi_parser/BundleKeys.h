// The keys that the operations store in their bundles, one constant each,
// so that a key misspelt in a client is a compile error rather than a 0 or a
// null at run time:
//
//   bundle.GetInt(_quarn_framework::keys::kTotal)
//
// The field tables and the operations store their keys through these very
// constants, and a test checks that every key of every bundle schema
// (poiparse --schema) has one. Which key each operation stores, when and
// with which type: docs/bundles.md. A constant is named after its key:
// "k" and the key's parts between '_' capitalised ("have_stprio":
// kHaveStprio, "errNo": kErrNo).
#ifndef POI_PARSER_BUNDLEKEYS_H_
#define POI_PARSER_BUNDLEKEYS_H_

namespace _quarn_framework {
namespace keys {

inline constexpr char kAccFlag[] = "acc_flag";
inline constexpr char kAddr[] = "addr";
inline constexpr char kAddress[] = "address";
inline constexpr char kAddressInfo[] = "address_info";
inline constexpr char kAddrs[] = "addrs";
inline constexpr char kAoi[] = "aoi";
inline constexpr char kBookInfo[] = "book_info";
inline constexpr char kCatalogID[] = "catalogID";
inline constexpr char kCenterPoints[] = "center_points";
inline constexpr char kCid[] = "cid";
inline constexpr char kCitys[] = "citys";
inline constexpr char kCode[] = "code";
inline constexpr char kCommentNum[] = "comment_num";
inline constexpr char kCont[] = "cont";
inline constexpr char kContent[] = "content";
inline constexpr char kCount[] = "count";
inline constexpr char kCurrentCity[] = "current_city";
inline constexpr char kCurrentNull[] = "current_null";
inline constexpr char kDetail[] = "detail";
inline constexpr char kDiscount[] = "discount";
inline constexpr char kDiscountContent[] = "discount_content";
inline constexpr char kDiscountDl[] = "discount_dl";
inline constexpr char kDiscountId[] = "discount_id";
inline constexpr char kDiscountTotal[] = "discount_total";
inline constexpr char kDistance[] = "distance";
inline constexpr char kEcReason[] = "ec_reason";
inline constexpr char kEnCitycode[] = "en_citycode";
inline constexpr char kEnCityname[] = "en_cityname";
inline constexpr char kEnCount[] = "en_count";
inline constexpr char kEnKeyword[] = "en_keyword";
inline constexpr char kEndcitys[] = "endcitys";
inline constexpr char kEndpoints[] = "endpoints";
inline constexpr char kEpChar[] = "ep_char";
inline constexpr char kErrNo[] = "errNo";
inline constexpr char kFlag[] = "flag";
inline constexpr char kFloor[] = "floor";
inline constexpr char kFrom[] = "from";
inline constexpr char kGeo[] = "geo";
inline constexpr char kGrouponFlag[] = "groupon_flag";
inline constexpr char kGrouponImage[] = "groupon_image";
inline constexpr char kGrouponNum[] = "groupon_num";
inline constexpr char kGrouponPrice[] = "groupon_price";
inline constexpr char kGrouponTitle[] = "groupon_title";
inline constexpr char kGrouponTotal[] = "groupon_total";
inline constexpr char kGrouponUrlMobile[] = "groupon_url_mobile";
inline constexpr char kHasAddrList[] = "hasAddrList";
inline constexpr char kHaveEncitylist[] = "have_encitylist";
inline constexpr char kHaveEnprio[] = "have_enprio";
inline constexpr char kHaveStcitylist[] = "have_stcitylist";
inline constexpr char kHaveStprio[] = "have_stprio";
inline constexpr char kHaveWpcitylist[] = "have_wpcitylist";
inline constexpr char kHaveWpprio[] = "have_wpprio";
inline constexpr char kIcon[] = "icon";
inline constexpr char kImage[] = "image";
inline constexpr char kIndoorPano[] = "indoor_pano";
inline constexpr char kIsIncity[] = "is_incity";
inline constexpr char kLevel[] = "level";
inline constexpr char kList[] = "list";
inline constexpr char kLocAttr[] = "loc_attr";
inline constexpr char kMapButton[] = "map_button";
inline constexpr char kMovieFilmCount[] = "movie_film_count";
inline constexpr char kMovieFlag[] = "movie_flag";
inline constexpr char kName[] = "name";
inline constexpr char kNum[] = "num";
inline constexpr char kOpAddr[] = "op_addr";
inline constexpr char kOpGel[] = "op_gel";
inline constexpr char kOrilDetail[] = "oril_detail";
inline constexpr char kOrilPrice[] = "oril_price";
inline constexpr char kOrilType[] = "oril_type";
inline constexpr char kOtaPrice[] = "ota_price";
inline constexpr char kOverallRating[] = "overall_rating";
inline constexpr char kPFlag[] = "p_flag";
inline constexpr char kPageNum[] = "page_num";
inline constexpr char kPano[] = "pano";
inline constexpr char kPccode[] = "pccode";
inline constexpr char kPcname[] = "pcname";
inline constexpr char kPhone[] = "phone";
inline constexpr char kPhoneButton[] = "phone_button";
inline constexpr char kPlace[] = "place";
inline constexpr char kPlaceparam[] = "placeparam";
inline constexpr char kPoiList[] = "poi_list";
inline constexpr char kPoiNum[] = "poi_num";
inline constexpr char kPoiRank[] = "poi_rank";
inline constexpr char kPois[] = "pois";
inline constexpr char kPrecise[] = "precise";
inline constexpr char kPremiumFlag[] = "premium_flag";
inline constexpr char kPrice[] = "price";
inline constexpr char kPriceText[] = "price_text";
inline constexpr char kPtX[] = "pt_x";
inline constexpr char kPtY[] = "pt_y";
inline constexpr char kPyCorrect[] = "py_correct";
inline constexpr char kQid[] = "qid";
inline constexpr char kQxId[] = "qx_id";
inline constexpr char kRecReason[] = "rec_reason";
inline constexpr char kRegularPrice[] = "regular_price";
inline constexpr char kResult[] = "result";
inline constexpr char kRpDes[] = "rp_des";
inline constexpr char kRpStrategy[] = "rp_strategy";
inline constexpr char kSearchType[] = "search_type";
inline constexpr char kSepChar[] = "sep_char";
inline constexpr char kShow[] = "show";
inline constexpr char kShowInfo[] = "show_info";
inline constexpr char kSortkey[] = "sortkey";
inline constexpr char kSortrule[] = "sortrule";
inline constexpr char kSrcName[] = "src_name";
inline constexpr char kStCitycode[] = "st_citycode";
inline constexpr char kStCityname[] = "st_cityname";
inline constexpr char kStCount[] = "st_count";
inline constexpr char kStKeyword[] = "st_keyword";
inline constexpr char kStarLevel[] = "star_level";
inline constexpr char kStartcitys[] = "startcitys";
inline constexpr char kStartpoints[] = "startpoints";
inline constexpr char kStrategy[] = "strategy";
inline constexpr char kSuggestQuery[] = "suggest_query";
inline constexpr char kSupBus[] = "sup_bus";
inline constexpr char kSupBusinessArea[] = "sup_business_area";
inline constexpr char kSupLukuang[] = "sup_lukuang";
inline constexpr char kSupSubway[] = "sup_subway";
inline constexpr char kTFlag[] = "t_flag";
inline constexpr char kTag[] = "tag";
inline constexpr char kTel[] = "tel";
inline constexpr char kTitle[] = "title";
inline constexpr char kTotal[] = "total";
inline constexpr char kTuanNums[] = "tuan_nums";
inline constexpr char kType[] = "type";
inline constexpr char kUid[] = "uid";
inline constexpr char kVeskRealtimePrice[] = "vesk_realtime_price";
inline constexpr char kVeskRealtimePriceFlag[] = "vesk_realtime_price_flag";
inline constexpr char kWFlag[] = "w_flag";
inline constexpr char kWapBookable[] = "wap_bookable";
inline constexpr char kWaypointcitys[] = "waypointcitys";
inline constexpr char kWaypoints[] = "waypoints";
inline constexpr char kWaypointsResult[] = "waypoints_result";
inline constexpr char kWd[] = "wd";
inline constexpr char kWeb[] = "web";
inline constexpr char kWpCount[] = "wp_count";
inline constexpr char kWpKeyword[] = "wp_keyword";
inline constexpr char kWplist[] = "wplist";
inline constexpr char kX[] = "x";
inline constexpr char kY[] = "y";

}  // namespace keys
}  // namespace _quarn_framework

#endif  // POI_PARSER_BUNDLEKEYS_H_

// The indoor search answer: error codes, the page and its records.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using _quarn_framework::CPoiJsonObjParser;
using P = CPoiJsonObjParser;

#define DATA R"("data":{"page_num":1,"poi_num":2,"poi_list":[{"name":"A"}]})"
#define NO_FLAGS R"("t_flag":false,"w_flag":false,"p_flag":false)"

TEST(Indoor, ServiceErrorsBecomeClientCodes) {
  testing_support::ExpectCases(P::ParsePoiIndoorRst, {
    // An error status never reads "data".
    {R"({"errNo":5,)" DATA "}", 1, R"({"errNo":11})"},
    {R"({"errNo":1,"Msg":"invalid bid: 12",)" DATA "}", 1, R"({"errNo":601})"},
    {R"({"errNo":1,"Msg":"no such floor"})", 1, R"({"errNo":602})"},
    {R"({"errNo":1,"Msg":"floor and bid both wrong"})", 1, R"({"errNo":601})"},
    {R"({"errNo":1,"Msg":"timeout",)" DATA "}", 1, "{}"},
    {R"({"errNo":1})", 1, "{}"},
    {R"({"errNo":"1","Msg":"bid"})", 1, R"({"errNo":601})"},
    {R"({"errNo":2,)" DATA "}", 1, R"({"errNo":603})"},
    {R"({"errNo":-3})", 1, R"({"errNo":603})"},
    {R"({)" DATA "}", 1, R"({"errNo":603})"},
  });
}

TEST(Indoor, PageAndPoiList) {
  testing_support::ExpectCases(P::ParsePoiIndoorRst, {
    {R"({"errNo":0,"data":{"poi_list":[],"poi_num":0,"page_num":1}})", 1,
     R"({"page_num":1,"poi_num":0})"},
    {R"({"errNo":0,"data":{"poi_list":[{"uid":"1"},null,{"uid":"2"}]}})", 1,
     R"({"poi_list":[{"uid":"1",)" NO_FLAGS R"(},{"uid":"2",)" NO_FLAGS "}]}"},
    // A non-empty list is stored even when no element gives a record.
    {R"({"errNo":0,"data":{"poi_list":[null,"a"]}})", 1, R"({"poi_list":[]})"},
    {R"({"errNo":0,"data":{"poi_list":{"uid":"1"}}})", 1, "{}"},
  });
}

TEST(Indoor, PoiRecord) {
  testing_support::ExpectCases(P::GetIndoorPoiContentFromJson, {
    {R"({"twp":"3","uid":"u","tuan_nums":"2","tag":"t","star_level":"45","pt_y":"2.5","pt_x":"1.5",)"
     R"("price":"38","poi_rank":"1","phone":"p","name":"n","floor":"F1","discount":"d","cid":"c",)"
     R"("qx_id":"q","address":"a"})",
     1,
     R"({"address":"a","qx_id":"q","cid":"c","discount":"d","floor":"F1","name":"n","phone":"p",)"
     R"("poi_rank":"1","price":"38","pt_x":"1.5","pt_y":"2.5","star_level":"45","tag":"t",)"
     R"("tuan_nums":"2","uid":"u","t_flag":true,"w_flag":true,"p_flag":false})"},
    {R"({"floor":-1,"pt_x":12960411.27})", 1,
     R"({"floor":"-1","pt_x":"12960411.27",)" NO_FLAGS "}"},
    {"[]", 0, "{}"},
  });
}

TEST(Indoor, TwpFlags) {
  testing_support::ExpectCases(P::GetIndoorPoiContentFromJson, {
    {R"({"twp":"5"})", 1, R"({"t_flag":true,"w_flag":false,"p_flag":true})"},
    {R"({"twp":"6"})", 1, R"({"t_flag":false,"w_flag":true,"p_flag":true})"},
    {R"({"twp":"8"})", 1, "{" NO_FLAGS "}"},
    {R"({"twp":"-1"})", 1, R"({"t_flag":true,"w_flag":true,"p_flag":true})"},
    {R"({"twp":"-4"})", 1, R"({"t_flag":false,"w_flag":false,"p_flag":true})"},
    {R"({"twp":"3abc"})", 1, R"({"t_flag":true,"w_flag":true,"p_flag":false})"},
    {R"({"twp":" 4"})", 1, R"({"t_flag":false,"w_flag":false,"p_flag":true})"},
    {R"({"twp":"abc"})", 1, "{" NO_FLAGS "}"},
    {R"({"twp":""})", 1, "{" NO_FLAGS "}"},
    {"{}", 1, "{" NO_FLAGS "}"},
  });
}

}  // namespace

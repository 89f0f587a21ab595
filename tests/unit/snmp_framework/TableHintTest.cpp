#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Snmp/TableHint.h"

namespace {

// How the batch's table_info records come about.
enum class Source {
  // Column and index OID only, no parsed index values: the hint is parsed from the OID.
  indexOid,
  // net-snmp's table helper itself, run on each request's OID: column, index OID and the index
  // values as it parses them (padded, masked or partial where the OID is).
  tableHelper,
};

const char* name(Source s) {
  return s == Source::indexOid ? "IndexOid" : "TableHelper";
}
void PrintTo(Source s, std::ostream* os) {
  *os << name(s);
}
std::string sourceName(const testing::TestParamInfo<Source>& info) {
  return name(info.param);
}

// A hint: the (integer, address) of the row to start at and whether it is the request's own
// list (not a copy); {-1, ""} when there is none.
struct Hint {
  long integer = -1;
  std::string address;
  bool borrowed = false;

  bool operator==(const Hint& o) const { return integer == o.integer && address == o.address; }
};
std::ostream& operator<<(std::ostream& os, const Hint& h) {
  return os << "{" << h.integer << ", \"" << h.address << "\"" << (h.borrowed ? ", borrowed" : "")
            << "}";
}
const Hint kNone{};

// A batch of table requests as they reach the table_hint handler, for a table indexed by
// (INTEGER, IpAddress) with columns 2..5 at 1.3.6.1.4.1.99999.7.
class Batch {
 public:
  explicit Batch(Source source) : source_(source) {
    netsnmp_table_helper_add_indexes(&table_, ASN_INTEGER, ASN_IPADDRESS, 0);
    table_.min_column = 2;
    table_.max_column = 5;
    if (source_ == Source::tableHelper) {
      // The table helper above a handler that takes the hint, as table_hint sits below it.
      reg_ = netsnmp_create_handler_registration("tableHintTest", takeHint, kRoot.data(),
                                                 kRoot.size(), HANDLER_CAN_RONLY);
      reg_->handler->myvoid = this;
      netsnmp_inject_handler(reg_, netsnmp_get_table_handler(&table_));
    } else {
      table_.number_indexes = count_varbinds(table_.indexes);
    }
  }
  ~Batch() {
    if (reg_) netsnmp_handler_registration_free(reg_);
    snmp_free_varbind(table_.indexes);
  }

  void add(unsigned column, std::vector<oid> index, bool processed = false) {
    pending_.push_back({column, std::move(index), processed});
  }

  Hint hint(int mode = MODE_GET) {
    std::vector<netsnmp_request_info> requests(pending_.size());
    netsnmp_variable_list* names = nullptr;
    for (const Pending& p : pending_) {
      std::vector<oid> name = kRoot;
      name.push_back(1);
      name.push_back(p.column);
      name.insert(name.end(), p.index.begin(), p.index.end());
      snmp_varlist_add_variable(&names, name.data(), name.size(), ASN_NULL, nullptr, 0);
    }
    netsnmp_variable_list* v = names;
    for (size_t i = 0; i < requests.size(); ++i, v = v->next_variable) {
      requests[i].requestvb = v;
      requests[i].next = i + 1 < requests.size() ? &requests[i + 1] : nullptr;
      if (source_ == Source::indexOid) attachIndexOid(requests[i], pending_[i]);
    }
    result_ = kNone;
    if (requests.empty()) {
      take(nullptr, mode);
    } else if (source_ == Source::indexOid) {
      for (size_t i = 0; i < requests.size(); ++i) requests[i].processed = pending_[i].processed;
      take(requests.data(), mode);
    } else {
      netsnmp_agent_request_info reqinfo{};
      reqinfo.mode = mode;
      netsnmp_call_handler(reg_->handler, reg_, &reqinfo, requests.data());
    }
    for (auto& r : requests) netsnmp_free_request_data_sets(&r);
    snmp_free_varbind(names);
    pending_.clear();
    return result_;
  }

 private:
  struct Pending {
    unsigned column;
    std::vector<oid> index;
    bool processed;
  };

  static inline const std::vector<oid> kRoot = {1, 3, 6, 1, 4, 1, 99999, 7};

  void attachIndexOid(netsnmp_request_info& r, const Pending& p) {
    auto* info =
        static_cast<netsnmp_table_request_info*>(calloc(1, sizeof(netsnmp_table_request_info)));
    info->colnum = p.column;
    info->index_oid_len = p.index.size();
    std::copy(p.index.begin(), p.index.end(), info->index_oid);
    info->reg_info = &table_;
    netsnmp_request_add_list_data(&r, netsnmp_create_data_list(TABLE_HANDLER_NAME, info, free));
  }

  // Below the table helper: requests it let through, some marked processed as an earlier
  // handler of the batch would have.
  static int takeHint(netsnmp_mib_handler* handler, netsnmp_handler_registration*,
                      netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
    auto* self = static_cast<Batch*>(handler->myvoid);
    size_t i = 0;
    for (netsnmp_request_info* r = requests; r; r = r->next, ++i) {
      if (self->pending_[i].processed) r->processed = 1;
    }
    self->take(requests, reqinfo->mode);
    return SNMP_ERR_NOERROR;
  }

  void take(netsnmp_request_info* requests, int mode) {
    const Snmp::BatchHint h = Snmp::batchHint(requests, mode, table_);
    if (!h.indexes) return;
    const u_char* a = h.indexes->next_variable->val.string;
    result_.integer = *h.indexes->val.integer;
    result_.address = std::to_string(a[0]) + "." + std::to_string(a[1]) + "." +
                      std::to_string(a[2]) + "." + std::to_string(a[3]);
    // A list of the hint's own is either freed here or one of the requests'.
    bool ofARequest = false;
    for (netsnmp_request_info* r = requests; r; r = r->next) {
      const netsnmp_table_request_info* info = netsnmp_extract_table_info(r);
      if (info && info->indexes == h.indexes) ofARequest = true;
    }
    EXPECT_NE(h.owned, ofARequest);
    result_.borrowed = !h.owned;
    if (h.owned) snmp_free_varbind(h.indexes);
  }

  Source source_;
  netsnmp_table_registration_info table_{};
  netsnmp_handler_registration* reg_ = nullptr;
  std::vector<Pending> pending_;
  Hint result_;
};

class BatchHintTest : public testing::TestWithParam<Source> {
 protected:
  Batch b{GetParam()};
  // The table helper's parsed list is handed over as it is whenever it holds the whole index.
  bool helper() const { return GetParam() == Source::tableHelper; }
};

TEST_P(BatchHintTest, SmallestUnprocessedIndexOfTheBatch) {
  b.add(2, {15, 10, 0, 0, 1});
  b.add(3, {3, 10, 0, 0, 9});
  b.add(2, {3, 10, 0, 0, 2});
  b.add(2, {1, 10, 0, 0, 1}, true);  // processed: no longer counts, though smallest and first
  Hint h = b.hint();
  EXPECT_EQ(h, (Hint{3, "10.0.0.2"}));
  EXPECT_EQ(h.borrowed, helper());

  // A GETNEXT past the last column is dropped by the iterator, so it doesn't lower the hint.
  b.add(6, {1, 1, 1, 1, 1});
  b.add(2, {3, 10, 0, 0, 2, 7, 7});  // leftovers past the full index: the row is a lower bound
  h = b.hint(MODE_GETNEXT);
  EXPECT_EQ(h, (Hint{3, "10.0.0.2"}));
  EXPECT_EQ(h.borrowed, helper());

  // An integer sub-identifier beyond 32 bits reads masked; the hint may only get lower.
  b.add(2, {4294967296 + 3, 10, 0, 0, 2});
  h = b.hint(MODE_GETNEXT);
  EXPECT_TRUE(h == kNone || h.integer <= 3) << h;
}

TEST_P(BatchHintTest, AnyRequestFromTheTopMeansNoHint) {
  EXPECT_EQ(b.hint(), kNone);  // empty batch
  b.add(2, {15, 10, 0, 0, 1});
  b.add(2, {});  // a GETNEXT on the column itself
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  // Partial: sorts before every full index that extends it. The table helper pads the cut
  // address to 10.0.0.0 and counts it as parsed, yet a row 3.10.0.0.0 would answer this
  // GETNEXT, so that is no place to start after; the whole index of the other request does
  // not stand in for it either.
  b.add(2, {15, 10, 0, 0, 1});
  b.add(3, {3, 10});
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  b.add(3, {3, 10, 0, 0});
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  // A GET the table helper lets through with the same padding.
  b.add(3, {3, 10, 0, 0});
  EXPECT_EQ(b.hint(MODE_GET), kNone);
  b.add(2, {3, 10, 0, 0, 300});  // no IpAddress
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  EXPECT_EQ(Snmp::tableHint(nullptr).word, 0);  // outside a hinted table's handler
}

INSTANTIATE_TEST_SUITE_P(Sources, BatchHintTest,
                         testing::Values(Source::indexOid, Source::tableHelper), sourceName);

}  // namespace

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/Snmp/TableHint.h"

namespace {

// A batch of table requests as the table helper leaves them: each with its column and index
// OID; the table is indexed by (INTEGER, IpAddress) with columns 2..5.
class Batch {
 public:
  Batch() {
    table_.min_column = 2;
    table_.max_column = 5;
    netsnmp_table_helper_add_indexes(&table_, ASN_INTEGER, ASN_IPADDRESS, 0);
  }
  ~Batch() {
    release();
    for (auto& p : pending_) free(p.info);
    snmp_free_varbind(table_.indexes);
  }

  void add(unsigned column, std::vector<oid> index, bool processed = false) {
    auto* info =
        static_cast<netsnmp_table_request_info*>(calloc(1, sizeof(netsnmp_table_request_info)));
    info->colnum = column;
    info->index_oid_len = index.size();
    std::copy(index.begin(), index.end(), info->index_oid);
    info->reg_info = &table_;
    pending_.push_back({info, processed});
  }

  // The hint's (integer, address) or {-1, ""} when there is none.
  std::pair<long, std::string> hint(int mode = MODE_GET) {
    release();
    requests_.assign(pending_.size(), netsnmp_request_info{});
    for (size_t i = 0; i < pending_.size(); ++i) {
      netsnmp_request_info& r = requests_[i];
      r.processed = pending_[i].processed;
      r.next = i + 1 < pending_.size() ? &requests_[i + 1] : nullptr;
      netsnmp_request_add_list_data(
          &r, netsnmp_create_data_list(TABLE_HANDLER_NAME, pending_[i].info, free));
    }
    pending_.clear();
    netsnmp_variable_list* vars =
        Snmp::batchHintIndexes(requests_.empty() ? nullptr : requests_.data(), mode, table_);
    if (!vars) return {-1, ""};
    std::pair<long, std::string> out{*vars->val.integer, ""};
    const u_char* a = vars->next_variable->val.string;
    out.second = std::to_string(a[0]) + "." + std::to_string(a[1]) + "." + std::to_string(a[2]) +
                 "." + std::to_string(a[3]);
    snmp_free_varbind(vars);
    return out;
  }

 private:
  void release() {
    for (auto& r : requests_) netsnmp_free_request_data_sets(&r);
    requests_.clear();
  }

  struct Pending {
    netsnmp_table_request_info* info;
    bool processed;
  };
  netsnmp_table_registration_info table_{};
  std::vector<Pending> pending_;
  std::vector<netsnmp_request_info> requests_;
};

using Hint = std::pair<long, std::string>;
const Hint kNone{-1, ""};

TEST(BatchHintTest, SmallestUnprocessedIndexOfTheBatch) {
  Batch b;
  b.add(2, {15, 10, 0, 0, 1});
  b.add(3, {3, 10, 0, 0, 9});
  b.add(2, {3, 10, 0, 0, 2});
  b.add(2, {1, 10, 0, 0, 1}, true);  // processed: no longer counts, though smallest and first
  EXPECT_EQ(b.hint(), (Hint{3, "10.0.0.2"}));

  // A GETNEXT past the last column is dropped by the iterator, so it doesn't lower the hint.
  b.add(6, {1, 1, 1, 1, 1});
  b.add(2, {3, 10, 0, 0, 2, 7, 7});  // leftovers past the full index: the row is a lower bound
  EXPECT_EQ(b.hint(MODE_GETNEXT), (Hint{3, "10.0.0.2"}));

  // An integer sub-identifier beyond 32 bits reads masked; the hint may only get lower.
  b.add(2, {4294967296 + 3, 10, 0, 0, 2});
  const Hint masked = b.hint(MODE_GETNEXT);
  EXPECT_TRUE(masked == kNone || masked.first <= 3);
}

TEST(BatchHintTest, AnyRequestFromTheTopMeansNoHint) {
  Batch b;
  EXPECT_EQ(b.hint(), kNone);  // empty batch
  b.add(2, {15, 10, 0, 0, 1});
  b.add(2, {});  // a GETNEXT on the column itself
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  b.add(2, {15, 10, 0, 0, 1});
  b.add(3, {3, 10});  // partial: sorts before every full index that extends it
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  b.add(2, {3, 10, 0, 0, 300});  // no IpAddress
  EXPECT_EQ(b.hint(MODE_GETNEXT), kNone);
  EXPECT_EQ(Snmp::tableHint(nullptr).word, 0);  // outside a hinted table's handler
}

}  // namespace

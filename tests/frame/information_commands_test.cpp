// The commands that tell about the service, and the ones that switch discovery, run through the
// table with a host that can be made to misbehave.
#include <gtest/gtest.h>
#include <json/json.h>
#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>

#include "environment/configuration.h"
#include "environment/mdns_settings.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "frame/host_double.h"
#include "manager/certificate_date.h"
#include "manager/manager_client.h"
#include "support/temp_folder.h"

namespace {

class Commands : public ::testing::Test {
 protected:
  Commands() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
    HostDouble::asked.clear();
  }

  std::string Reply(const std::string& method, const std::string& parameters,
                    const std::string& version = "") {
    HostDouble host;
    const auto request = host.Request(R"({"id":"1","version":")" + version + R"(","method":")" +
                                      method + R"(","parameter":)" + parameters + "}");
    manager_.Function(request.get());
    return host.sent.empty() ? "nothing was sent" : host.sent[0].text;
  }

  std::vector<std::string> Values(const std::string& method, const std::string& parameters,
                                  const std::string& version = "") {
    Json::Value reply;
    EXPECT_TRUE(Json::Reader().parse(Reply(method, parameters, version), reply));
    std::vector<std::string> values;
    for (const auto& value : reply["result"]) values.push_back(value.asString());
    return values;
  }

  static std::string Stored(const char* key) {
    return GetConfigurationfromInitFile(key, "", DEFAULT_SECTION);
  }

  ManagerClient manager_;
};
using InformationCommands = Commands;
using DiscoveryCommands = Commands;

TEST_F(InformationCommands, TellVersionAndCaller) {
  using Texts = std::vector<std::string>;
  const Texts expected = {
      "17, 3, 0, 0531", "Marvique Service Manager Module", "0", "false", "32", "{}"};
  EXPECT_EQ(Values("VersionInfo", "[]"), expected);
  EXPECT_EQ(Values("VersionInfo", "[]", "hvasm_13000405"), expected);
  EXPECT_EQ(Values("VersionInfo", "[]", "hvasm_13000404").at(0), "13,0,0,0404");
  EXPECT_NE(Reply("GetPorts", R"(["0"])").find("-2408"), std::string::npos);

  EXPECT_EQ(Values("QVVersion", "[]"), (Texts{"0", "Marvique Service"}));
  SetConfigurationToInitFile("QVVersion", "13,0,0,404", DEFAULT_SECTION);
  EXPECT_EQ(Values("QVVersion", "[]"), (Texts{"13,0,0,404", "Marvique Service"}));
  EXPECT_EQ(Values("QVVersion", "[7]"), (Texts{"7", "", "Marvique Service"}));
}

// A self-signed certificate that ends at the given ASN.1 time.
std::string CertificateUntil(const char* asn1Time) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"),
                                                                &EVP_PKEY_free);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
  const std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new(BIO_s_mem()), &BIO_free);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  EXPECT_EQ(ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate.get()), asn1Time), 1);
  X509_set_pubkey(certificate.get(), key.get());
  EXPECT_GT(X509_sign(certificate.get(), key.get(), EVP_sha256()), 0);
  EXPECT_EQ(PEM_write_bio_X509(out.get(), certificate.get()), 1);
  char* text = nullptr;
  const long length = BIO_get_mem_data(out.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

TEST_F(InformationCommands, TellUntilWhenTheCertificateIsValid) {
  SetConfigurationToInitFile("cert_name", "own.pem", "127.0.0.1");
  EXPECT_EQ(Reply("GetCertExpiredDate", "[]"), "[]") << "there is no file";
  const std::string good = CertificateUntil("20491231235959Z");
  const std::string encrypted =
      "-----BEGIN CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\n"
      "DEK-Info: AES-256-CBC,00112233445566778899AABBCCDDEEFF\n\n" +
      good.substr(good.find('\n') + 1);
  const struct {
    std::string content, reply;
  } kFiles[] = {{good, "[\"2049-12-31\"]"},
                {"text before\n" + good + "text behind", "[\"2049-12-31\"]"},
                {CertificateUntil("20200229000000Z"), "[\"2020-02-29\"]"},
                {CertificateUntil("20500101000000Z"), "[]"},
                {good.substr(0, good.size() / 2), "[]"},
                {encrypted, "[]"},
                {std::string(100000, 'x'), "[]"},
                {"", "[]"}};
  std::filesystem::create_directories(GetCertPath());
  for (const auto& [content, reply] : kFiles) {
    Spit(GetCertPath() + "own.pem", content);
    EXPECT_EQ(Reply("GetCertExpiredDate", "[]"), reply) << content.substr(0, 200);
  }
  std::filesystem::remove(GetCertPath() + "own.pem");
  std::filesystem::create_directory(GetCertPath() + "own.pem");
  EXPECT_EQ(Reply("GetCertExpiredDate", "[]"), "[]");
}

TEST_F(InformationCommands, ReadUtcTimesAndNothingElse) {
  const struct {
    const char* text;
    bool good;
    int year, second;
  } kTimes[] = {{"491231235959Z", true, 149, 59}, {"500101000000Z", true, 50, 0},
                {"4912312359Z", true, 149, 0},    {"4912312359+0130", true, 149, 0},
                {"491331235959Z", false, 0, 0},   {"490031235959Z", false, 0, 0},
                {"491200235959Z", false, 0, 0},   {"491232235959Z", false, 0, 0},
                {"491231245959Z", false, 0, 0},   {"491231236059Z", false, 0, 0},
                {"4912312359 Z", false, 0, 0},    {"491231235959", false, 0, 0},
                {"491231235959ZZ", false, 0, 0},  {"491231235959+01", false, 0, 0},
                {"4x1231235959Z", false, 0, 0},   {"491231Z", false, 0, 0}};
  for (const auto& [text, good, year, second] : kTimes) {
    const std::unique_ptr<ASN1_STRING, decltype(&ASN1_STRING_free)> time(
        ASN1_STRING_type_new(V_ASN1_UTCTIME), &ASN1_STRING_free);
    ASN1_STRING_set(time.get(), text, static_cast<int>(std::strlen(text)));
    std::tm fields{};
    EXPECT_EQ(openssl_asn1_utctime_to_tm(time.get(), &fields), good) << text;
    EXPECT_EQ(fields.tm_year, year) << text;
    EXPECT_EQ(fields.tm_sec, second) << text;
  }
}

// Hosts that answer the request for a text in two calls, not all of them truthfully.
struct TextHost {
  unsigned int announced;
  std::string bytes;
  unsigned int told;
};
TextHost g_textHost;

int AnswerText(const char*, const char*, const char*, void* out, unsigned int* length) {
  if (out != nullptr) {
    const std::size_t room = std::min<std::size_t>(*length, g_textHost.bytes.size());
    std::memcpy(out, g_textHost.bytes.data(), room);
  }
  *length = out == nullptr ? g_textHost.announced : g_textHost.told;
  return 0;
}

TEST_F(InformationCommands, TakeATextFromAHostThatCannotCount) {
  const struct {
    TextHost host;
    std::string reply;
  } kHosts[] = {{{5, "hello", 5}, "hello"}, {{5, "hello", 3}, "hel"},
                {{3, "hello", 5}, "hel"},   {{3, "hello", 4000000000u}, "hel"},
                {{0, "hello", 5}, ""},      {{4000000000u, "hello", 5}, ""},
                {{5, "hello", 0}, ""}};
  for (const auto& [host, reply] : kHosts) {
    g_textHost = host;
    HostDouble collector;
    HttpParamRequest request(1, &collector, R"({"method":"GetBinaryFileInfo"})", 1, 0, "",
                             &HostDouble::Wrap, &HostDouble::Take, &AnswerText, nullptr, nullptr,
                             nullptr, 0, true);
    manager_.Function(&request);
    EXPECT_EQ(collector.sent.at(0).text, reply) << host.announced << " " << host.told;
  }
  HostDouble collector;
  HttpParamRequest request(1, &collector, R"({"method":"GetBinaryFileInfo"})", 1, 0, "",
                           &HostDouble::Wrap, &HostDouble::Take, nullptr, nullptr, nullptr, nullptr,
                           0, true);
  manager_.Function(&request);
  EXPECT_EQ(collector.sent.at(0).text, "") << "a host without callbacks has no text";
}

TEST_F(DiscoveryCommands, SwitchTheBrowser) {
  EXPECT_EQ(Reply("GetmDNSQueryService", "[]"), "[false,\"\",0,0]");
  EXPECT_EQ(Reply("SetmDNSQueryService", R"([true,"10.0.0.1",8080,"8443",0,0])"), "");
  EXPECT_EQ(HostDouble::asked, (std::vector<std::string>{"stopmDNSQuery", "startmDNSQuery"}));
  EXPECT_EQ(Reply("GetmDNSQueryService", "[]"), "[true,\"10.0.0.1\",8080,8443]");
  HostDouble::asked.clear();
  EXPECT_EQ(Reply("SetmDNSQueryService", R"([false,"10.0.0.2",1,2,0,0])"), "");
  EXPECT_EQ(HostDouble::asked, std::vector<std::string>{"stopmDNSQuery"});
  EXPECT_EQ(Reply("GetmDNSQueryService", "[]"), "[false,\"\",0,0]");
  EXPECT_EQ(Stored("Proxy_IP"), "10.0.0.2");
}

TEST_F(DiscoveryCommands, SwitchTheResponderAndHashItsPassword) {
  EXPECT_EQ(Reply("GetmDNSService", "[]"), "[false,-1,\"\",\"\",0,0,0]");
  const std::string digest =
      "e9a75486736a550af4fea861e2378305c4a555a05094dee1dca2f68afea49cc3"
      "a50e8de6ea131ea521311f4d6fb054a146e8282f8e35ff2e6368c1a62e909716";  // of "password"
  const struct {
    const char* parameters;
    std::string password;
  } kSettings[] = {
      {R"([true,"me","a,b",0,0,0,1,true,"password"])", digest},
      {R"(["true","me","a,b",0,0,0,1,"TRUE","password"])", digest},
      {R"([true,"me","a,b",0,0,0,2,true,"password"])", ""},
      {R"([true,"me","a,b",0,0,0,1,false,"password"])", ""},
      {R"([true,"me","a,b",0,0,0,1,true,""])", ""},
  };
  for (const auto& [parameters, password] : kSettings) {
    HostDouble::asked.clear();
    EXPECT_EQ(Reply("SetmDNSService", parameters), "");
    EXPECT_EQ(Stored("Service_pwd"), password) << parameters;
    EXPECT_EQ(HostDouble::asked, (std::vector<std::string>{"stopmDNS", "startmDNS"}));
  }
  EXPECT_EQ(Reply("GetmDNSService", "[]"), "[true,1,\"me\",\"a,b\",0,0,0]");
  HostDouble::asked.clear();
  EXPECT_EQ(Reply("SetmDNSService", R"([false,"x","y",0,0,0,7,true,"password"])"), "");
  EXPECT_EQ(HostDouble::asked, std::vector<std::string>{"stopmDNS"});
  EXPECT_EQ(Stored("Service_alias"), "me") << "switching off keeps the rest";
  EXPECT_EQ(Reply("GetmDNSService", "[]"), "[false,-1,\"\",\"\",0,0,0]");
}

TEST_F(DiscoveryCommands, RefuseWrongParametersInEveryPlace) {
  const struct {
    const char* method;
    std::vector<std::string> good;
    std::vector<const char*> wrong;  // a text of the wrong type for each place
  } kCommands[] = {{"SetmDNSQueryService",
                    {"true", "\"a\"", "1", "2", "0", "0"},
                    {"\"no\"", "{}", "[]", "null"}},
                   {"SetmDNSService",
                    {"true", "\"a\"", "\"t\"", "true", "true", "true", "1", "true", "\"p\""},
                    {"[]", "{}", "{}", "\"x\"", "{}", "[]", "true", "\"false\"", "{}"}}};
  for (const auto& [method, good, wrong] : kCommands) {
    const auto list = [](const std::vector<std::string>& texts) {
      std::string joined;
      for (const auto& text : texts) joined += (joined.empty() ? "[" : ",") + text;
      return joined.empty() ? "[]" : joined + "]";
    };
    for (std::size_t count = 0; count < good.size(); ++count) {
      const std::string reply = Reply(method, list({good.begin(), good.begin() + count}));
      EXPECT_NE(reply.find("-2202"), std::string::npos) << method << " with " << count;
    }
    for (std::size_t place = 0; place < wrong.size(); ++place) {
      auto parameters = good;
      parameters[place] = wrong[place];
      const std::string reply = Reply(method, list(parameters));
      EXPECT_NE(reply.find("-2201"), std::string::npos) << method << " place " << place;
    }
  }
  EXPECT_EQ(Slurp(GetInitFile()), "");
  EXPECT_TRUE(HostDouble::asked.empty());
}

TEST_F(DiscoveryCommands, StoreAnyTextAsOneValue) {
  const struct {
    const char *json, *stored;
  } kTexts[] = {{R"("a\r\nService_pwd=x\n[QV]")", "aService_pwd=x[QV]"},
                {R"("\"q\" 'q' ; # =")", "\"q\" 'q' ; # ="},
                {R"("\u00e4\u4f8b")", "\xC3\xA4\xE4\xBE\x8B"},
                {R"("")", ""}};
  for (const auto& [json, stored] : kTexts) {
    Reply("SetmDNSService", std::string("[true,") + json + R"(,"",0,0,0,0,false,""])");
    EXPECT_EQ(Stored("Service_alias"), stored);
    EXPECT_EQ(Stored("Service_pwd"), "");
  }
  const std::string longText(100000, 'x');
  Reply("SetmDNSService", "[true,\"" + longText + R"(","",0,0,0,0,false,""])");
  EXPECT_EQ(Stored("Service_alias"), longText.substr(0, 2046));
  Spit(GetInitFile(), "[QV]\nEnablemDNSService=TRUE\nService_am=abc\n");
  EXPECT_EQ(Reply("GetmDNSService", "[]"), "[true,0,\"\",\"\",0,0,0]");
  SetEnablemDNSService(true, "a", "t", false, false, false, 1, "kept");
  SetEnablemDNSService(true, "a", "t", false, false, false, 1, nullptr);
  EXPECT_EQ(GetmDNSServicePwd(), "kept");
}

}  // namespace

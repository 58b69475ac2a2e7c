// The commands that tell about the service, and the ones that switch discovery, run through the
// table with a host that can be made to misbehave.
#include <openssl/asn1.h>

#include <cstring>

#include "environment/mdns_settings.h"
#include "manager/certificate_date.h"
#include "support/host_double.h"
#include "support/testing.h"

namespace {

using Texts = std::vector<std::string>;
using InformationCommands = Commands;
using DiscoveryCommands = Commands;

TEST_F(InformationCommands, TellVersionAndCaller) {
  const auto values = [this](const char* method, const char* parameters, const char* version = "") {
    std::string joined;
    const Json::Value reply = Parsed(Reply(method, parameters, 1, version));
    for (const Json::Value& value : reply["result"]) joined += value.asString() + "|";
    return joined;
  };
  const std::string more = "Marvique Service Manager Module|0|false|32|{}|";
  EXPECT_EQ(values("VersionInfo", "[]", "hvasm_13000405"), "17, 3, 0, 0531|" + more);
  EXPECT_EQ(values("VersionInfo", "[]", "hvasm_13000404"), "13,0,0,0404|" + more);
  EXPECT_EQ(values("QVVersion", "[]"), "0|Marvique Service|");
  SetConfigurationToInitFile("QVVersion", "13,0,0,404", DEFAULT_SECTION);
  EXPECT_EQ(values("QVVersion", "[]"), "13,0,0,404|Marvique Service|");
  EXPECT_EQ(values("QVVersion", "[7]"), "7||Marvique Service|");
}

TEST_F(InformationCommands, TellNoDateOfWhatIsNoCertificate) {
  SetConfigurationToInitFile("cert_name", "own.pem", "127.0.0.1");
  std::filesystem::create_directories(GetCertPath());
  EXPECT_EQ(Reply("GetCertExpiredDate", "[]"), "[]") << "there is no file";
  const std::string encrypted =
      "-----BEGIN CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\n"
      "DEK-Info: AES-256-CBC,00112233445566778899AABBCCDDEEFF\n\n" +
      std::string(64, 'A') + "\n-----END CERTIFICATE-----\n";
  for (const std::string& content : {std::string(), encrypted}) {
    Spit(GetCertPath() + "own.pem", content);
    EXPECT_EQ(Reply("GetCertExpiredDate", "[]"), "[]") << content;
  }
}

TEST_F(InformationCommands, ReadUtcTimesAndNothingElse) {
  const auto read = [](const char* text, std::tm* fields, int type = V_ASN1_UTCTIME) {
    const std::unique_ptr<ASN1_STRING, decltype(&ASN1_STRING_free)> time(ASN1_STRING_type_new(type),
                                                                         &ASN1_STRING_free);
    ASN1_STRING_set(time.get(), text, static_cast<int>(std::strlen(text)));
    return openssl_asn1_utctime_to_tm(time.get(), fields);
  };
  std::tm fields{};
  for (const auto& [text, year, second] : Table<const char*, int, int>{
           {"491231235958Z", 149, 58}, {"500101000000Z", 50, 0}, {"4912312359+0130", 149, 0}}) {
    EXPECT_TRUE(read(text, &fields)) << text;
    EXPECT_EQ(std::pair(fields.tm_year, fields.tm_sec), std::pair(year, second)) << text;
  }
  for (const char* text :
       {"491331235959Z", "491200235959Z", "491231245959Z", "491231236059Z", "4912312359 Z",
        "491231235959", "491231235959ZZ", "491231235959+01", "491231Z"}) {
    EXPECT_FALSE(read(text, &fields)) << text;
  }
  EXPECT_FALSE(read("491231235959Z", &fields, V_ASN1_GENERALIZEDTIME));
}

// A host that answers the request for a text in two calls, not always truthfully.
struct TextHost {
  unsigned int announced, told;
  const char* reply;
};
TextHost g_textHost;

int AnswerText(const char*, const char*, const char*, void* out, unsigned int* length) {
  if (out != nullptr) std::memcpy(out, "hello", std::min(*length, 5u));
  *length = out == nullptr ? g_textHost.announced : g_textHost.told;
  return 0;
}

TEST_F(InformationCommands, TakeATextFromAHostThatCannotCount) {
  for (const TextHost& host : {TextHost{5, 5, "hello"},
                               {5, 3, "hel"},
                               {3, 4000000000u, "hel"},
                               {0, 5, ""},
                               {4000000000u, 5, ""}}) {
    g_textHost = host;
    HostDouble collector;
    const char* command = R"({"method":"GetBinaryFileInfo"})";
    manager_.Function(collector.Request(command, 1, 3, &AnswerText).get());
    EXPECT_EQ(collector.sent.at(0).text, host.reply) << host.announced << " " << host.told;
  }
}

TEST_F(DiscoveryCommands, SwitchTheBrowser) {
  EXPECT_EQ(Reply("SetmDNSQueryService", R"([true,"10.0.0.1\n",8080,"8443",0,0])"), "");
  EXPECT_EQ(Reply("GetmDNSQueryService", "[]"), "[true,\"10.0.0.1\",8080,8443]");
  EXPECT_EQ(Reply("SetmDNSQueryService", R"([false,"10.0.0.2",1,2,0,0])"), "");
  EXPECT_EQ(HostDouble::asked, (Texts{"stopmDNSQuery", "startmDNSQuery", "stopmDNSQuery"}));
  EXPECT_EQ(Reply("GetmDNSQueryService", "[]"), "[false,\"\",0,0]");
  EXPECT_EQ(Stored("Proxy_IP"), "10.0.0.2");
}

TEST_F(DiscoveryCommands, SwitchTheResponderAndHashItsPassword) {
  const std::string digest =
      "e9a75486736a550af4fea861e2378305c4a555a05094dee1dca2f68afea49cc3"
      "a50e8de6ea131ea521311f4d6fb054a146e8282f8e35ff2e6368c1a62e909716";  // of "password"
  const std::string digestOfBytes =
      "0b6ca4361c30a723b544cc33c76de41f87f2e24949c1734bc6f38a52c3e4f02e"
      "753a778dc4c3ed5e8e516bdedfc2bf9c7fda2f41e0c983debcdd66f0c9f28e21";  // of A umlaut, CR, LF,
                                                                           // quote, NUL, blank
  for (const auto& [parameters, password] : Table<const char*, std::string>{
           {R"([true,"me","a,b",0,0,0,1,true,"password"])", digest},
           {R"([true,"me","a,b",0,0,0,1,true,"\u00e4\r\n\"\u0000 "])", digestOfBytes},
           {R"([true,"me","a,b",0,0,0,2,true,"password"])", ""},
           {R"([true,"me","a,b",0,0,0,1,false,"password"])", ""},
           {R"([true,"me","a,b",0,0,0,1,true,""])", ""}}) {
    HostDouble::asked.clear();
    EXPECT_EQ(Reply("SetmDNSService", parameters), "");
    EXPECT_EQ(Stored("Service_pwd"), password) << parameters;
    EXPECT_EQ(HostDouble::asked, (Texts{"stopmDNS", "startmDNS"}));
  }
  EXPECT_EQ(Reply("GetmDNSService", "[]"), "[true,1,\"me\",\"a,b\",0,0,0]");
  HostDouble::asked.clear();
  EXPECT_EQ(Reply("SetmDNSService", R"([false,"x","y",0,0,0,7,true,"password"])"), "");
  EXPECT_EQ(HostDouble::asked, Texts{"stopmDNS"});
  EXPECT_EQ(Stored("Service_alias"), "me") << "switching off keeps the rest";
  EXPECT_EQ(Reply("GetmDNSService", "[]"), "[false,-1,\"\",\"\",0,0,0]");
}

TEST_F(DiscoveryCommands, RefuseWrongParametersInEveryPlace) {
  // The first places' types count; a reply to a wrong one has the refusal in it.
  for (const auto& [method, parameters, places, refusal] :
       Table<std::string, std::string, Json::ArrayIndex, std::string>{
           {"SetServerInfo", R"(["h",1,2,3,4])", 5, "{}"},
           {"CheckHVNPort", R"(["h",1,2])", 3, "{}"},
           {"SetmDNSQueryService", R"([true,"a",1,2,0,0])", 4, "-2201"},
           {"SetmDNSService", R"([true,"a","b",true,true,true,1,true,"p"])", 9, "-2201"}}) {
    const Json::Value good = Parsed(parameters);
    for (Json::ArrayIndex place = 0; place < good.size(); ++place) {
      Json::Value few = good, wrong = good;
      few.resize(place);
      EXPECT_NE(Reply(method, few.toStyledString()).find("-2202"), std::string::npos)
          << method << " with " << place;
      wrong[place] = Json::objectValue;
      const std::string reply = place < places ? Reply(method, wrong.toStyledString()) : refusal;
      EXPECT_TRUE(refusal == "{}" ? reply == refusal : reply.find(refusal) != std::string::npos)
          << method << " place " << place << ": " << reply;
    }
  }
  EXPECT_EQ(Slurp(GetInitFile()), "");
  EXPECT_TRUE(HostDouble::asked.empty());
}

}  // namespace

// SPDX-License-Identifier: MIT
// The elementary functions where the quick way is most easily wrong: the correct results of these arguments lie within
// a sixteenth of the quick way's bound of the middle between two doubles, on either side. A quick way that is off by
// more than its bound rounds half of them to the wrong side. The arguments are those that the quick way itself found
// among 0.15 to 63 million seeded ones; the expected values are MPFR's.
#include "core/elementary.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>

namespace
{

struct Case {
    double x;
    double expected;
};

struct PairCase {
    double a;
    double b;
    double expected;
};

void expect_bits(double actual, double expected)
{
    EXPECT_EQ(std::bit_cast<std::uint64_t>(actual), std::bit_cast<std::uint64_t>(expected))
        << std::hexfloat << actual << " instead of " << expected;
}

template <class Function, std::size_t N>
void expect_values(Function function, const Case (&cases)[N])
{
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hexfloat << "at " << c.x);
        expect_bits(function(c.x), c.expected);
    }
}

template <class Function, std::size_t N>
void expect_values(Function function, const PairCase (&cases)[N])
{
    for (const PairCase& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hexfloat << "at " << c.a << ", " << c.b);
        expect_bits(function(c.a, c.b), c.expected);
    }
}

constexpr Case kExp[] = {
    {-0x1.48c47c15a13a8p-9, 0x1.feb7a4fb5b5bdp-1},   {-0x1.947584031658ep-8, 0x1.fcd992ab15c5bp-1},
    {-0x1.5b6f3bb941c42p-8, 0x1.fd4af83a41da8p-1},   {0x1.84177a3e6f18ep-8, 0x1.01853e3ab4349p+0},
    {-0x1.faa9df60eed1cp-9, 0x1.fe06507f0016p-1},    {-0x1.537e9f93f349cp-9, 0x1.feacf1d5b5d5ep-1},
    {-0x1.63c083c3a87p-9, 0x1.fe9cbaf780c61p-1},     {-0x1.7b9fc82b4bd2p-11, 0x1.ffa120d9340b1p-1},
    {-0x1.bdce1dbc252a2p-8, 0x1.fc876a58dffb3p-1},   {-0x1.12c611c25b01p-8, 0x1.fddb9a5faa5f6p-1},
    {0x1.b679e2893e808p-8, 0x1.01b7f23befe17p+0},    {-0x1.e1dc95fd3f2a6p-8, 0x1.fc3fcf9aa8991p-1},
    {-0x1.06e11c39be83ap+5, 0x1.82303265ec0aep-48},  {0x1.ffa7f6d50583cp+4, 0x1.19283fadb5a3ap+46},
    {0x1.1a0aa9a6e2eeap+5, 0x1.d175996410256p+50},   {0x1.628f5da27a3a8p+3, 0x1.fab9dba823876p+15},
    {0x1.fd83517616b5p+2, 0x1.666ae0c137659p+11},    {-0x1.2acd267415612p+5, 0x1.1542741bb4db2p-54},
    {0x1.1149f44b9cedcp+3, 0x1.3fcc3c2c1f5bfp+12},   {-0x1.3a47ab49fd42ap+4, 0x1.95065a6c74c5dp-29},
    {0x1.2e6ccf1269878p+2, 0x1.c31931a31c84cp+6},    {-0x1.28ca693e345ep+5, 0x1.647c1ce728eadp-54},
    {-0x1.0e06634bce1e8p+3, 0x1.c5debe84aee45p-13},  {0x1.fd37c945633bcp+4, 0x1.e2d5a38f314d8p+45},
    {-0x1.e9e37828d12p-4, 0x1.c648bf6051e18p-1},     {0x1.c8fc02f780574p+4, 0x1.27346cea1336fp+41},
    {-0x1.1ecd96bae483cp+4, 0x1.19f91aff5ab42p-26},  {-0x1.efd9b9bcf1e8p-1, 0x1.84c7b2cf41839p-2},
    {-0x1.e15000fbb17p+0, 0x1.3877003cbaef3p-3},     {0x1.0fce6d4aea054p+4, 0x1.6c24341e2b617p+24},
    {-0x1.a45f2aca5edf6p+4, 0x1.11906bfc5c6dp-38},   {-0x1.e84aa59e1f9ebp+4, 0x1.f5fcedab64896p-45},
    {-0x1.27136bfda580ep+5, 0x1.b9b4705adeed3p-54},  {0x1.f05176c4577ep+1, 0x1.826bcb161e35bp+5},
    {0x1.ea62d84f266d8p+4, 0x1.299ff1a8e2a9fp+44},   {0x1.831848ae539bcp+4, 0x1.def3e8d51947fp+34},
    {0x1.0a250d8339f1ep+8, 0x1.f3f7e37a40becp+383},  {-0x1.e2b7846ae5126p+8, 0x1.807b7e8aa00c1p-697},
    {-0x1.400e77a553d8p+2, 0x1.b9303764ce101p-8},    {0x1.f101fc4393b2cp+8, 0x1.057e012c14e3cp+717},
    {-0x1.3cd5dbe97509ep+9, 0x1.bfad8a29051adp-915}, {-0x1.15cb261861ddp+8, 0x1.2bf594f07b09p-401},
    {-0x1.9016d64ad826p+5, 0x1.cd2bfd13cf37bp-73},   {0x1.f22f6e367bd7cp+8, 0x1.a8715bcef1f9bp+718},
    {-0x1.2d8614569606fp+8, 0x1.fd963ce3566e5p-436}, {0x1.48aec87d8f278p+6, 0x1.76171461a7557p+118},
    {0x1.26f737d570404p+9, 0x1.10af6c8688b56p+851},  {0x1.2c0c89301d67cp+8, 0x1.d6dc84229a1c2p+432}};

TEST(ElementaryHardCases, ExpRoundsRight)
{
    expect_values(panoval::exp, kExp);
}

constexpr Case kLog[] = {
    {0x1.00c99e4f75011p+0, 0x1.929e281d6608cp-9},    {0x1.00960cb421d54p+0, 0x1.2bc197aea6d8ap-9},
    {0x1.006f36227e00cp+0, 0x1.bc7805f00e0b5p-10},   {0x1.ffdc7b691bb73p-1, -0x1.1c2e92a2d8733p-12},
    {0x1.ffd464ae0c263p-1, -0x1.5ce96b8e54f06p-12},  {0x1.00be9d6f1e578p+0, 0x1.7cad3677a7a98p-9},
    {0x1.00679da36031ap+0, 0x1.9e22c3a6d058p-10},    {0x1.00a305db7df36p+0, 0x1.45a41283fcb4cp-9},
    {0x1.00397696387c4p+0, 0x1.cb812163c7f07p-11},   {0x1.00b9506f7cfabp+0, 0x1.721afa393e90ep-9},
    {0x1.00948ccf7433bp+0, 0x1.28c38d153d7ecp-9},    {0x1.001b4cb60fc21p+0, 0x1.b4b41878bdc46p-12},
    {0x1.00eb210e91e03p+0, 0x1.d56aab5031f7dp-9},    {0x1.fe67ad5e77e4fp-1, -0x1.98f5ca2c6a165p-9},
    {0x1.0062736fa90d4p+0, 0x1.898218dd8c786p-10},   {0x1.0073ba245f3edp+0, 0x1.ce800f72aedf6p-10},
    {0x1.006d29d234e9ep+0, 0x1.b44a49fad8151p-10},   {0x1.003be6dae8f5fp+0, 0x1.defecf20c8d47p-11},
    {0x1.00e82e8247f8ap+0, 0x1.cf8aef381d843p-9},    {0x1.febec59c0f2a2p-1, -0x1.419f5309a46abp-9},
    {0x1.fed82e7f1459p-1, -0x1.282717053893p-9},     {0x1.00ed09eb16e5bp+0, 0x1.d938e1ee1f02ap-9},
    {0x1.00f2a5bad5f08p+0, 0x1.e46608d8db32bp-9},    {0x1.fe740b7e330c9p-1, -0x1.8c8dec070e3dfp-9},
    {0x1.01fa17cd784b7p+0, 0x1.f8261beee760bp-8},    {0x1.01d8b274b17b4p+0, 0x1.d70021bf4e6ddp-8},
    {0x1.01f29ac8ba0bap+0, 0x1.f0b7ac56ec02cp-8},    {0x1.01e81a0a335ecp+0, 0x1.e64b04bd21838p-8},
    {0x1.01d40b2c5b6e9p+0, 0x1.d26156a827fbep-8},    {0x1.01f8070e172adp+0, 0x1.f61967bcdc507p-8},
    {0x1.01fd8172d1cp+0, 0x1.fb8909a6a0976p-8},      {0x1.01d02d1bc263bp+0, 0x1.ce8a43fb27c87p-8},
    {0x1.01e3cad75b96ep+0, 0x1.e203f09b8a2aep-8},    {0x1.01ce19ac8e2fcp+0, 0x1.cc7a8f7761934p-8},
    {0x1.01ee4117273e5p+0, 0x1.ec665a2df348cp-8},    {0x1.01dc413c93889p+0, 0x1.da885db3fae23p-8},
    {0x1.01f07e0214cafp+0, 0x1.ee9ef8cc90eeep-8},    {0x1.01d3733a4e52fp+0, 0x1.d1ca78436c477p-8},
    {0x1.01ebb8bb4827bp+0, 0x1.e9e2d58d807d9p-8},    {0x1.01dc67f614899p+0, 0x1.daaecfac5d9e6p-8},
    {0x1.01fd87d126775p+0, 0x1.fb8f5b678539bp-8},    {0x1.01d6e30cf1af8p+0, 0x1.d53409ebbdc7ap-8},
    {0x1.01f6dadf54427p+0, 0x1.f4ef82ce37f15p-8},    {0x1.01f934bf3fc22p+0, 0x1.f744cac1d874ep-8},
    {0x1.01dc962d0b1d8p+0, 0x1.dadcb13cc305ap-8},    {0x1.01f6c09402e38p+0, 0x1.f4d56abd02f1fp-8},
    {0x1.01d5b78def8dcp+0, 0x1.d40aad33a0c25p-8},    {0x1.01d7422e621b4p+0, 0x1.d5927d8e8ab4ap-8},
    {0x1.929d46a2afaf5p+0, 0x1.cfab41fafd917p-2},    {0x1.e316c66bcd86dp-1, -0x1.dc266f13a4711p-5},
    {0x1.baf213ab513a1p+0, 0x1.18b6c93f46e92p-1},    {0x1.cecfd315ef595p-1, -0x1.9db67a03b614fp-4},
    {0x1.cea1dfc1c4e7p+0, 0x1.2efa889c60de9p-1},     {0x1.16ab1e173b4c2p+0, 0x1.5b86a3fc425e8p-4},
    {0x1.45b6872cfe50cp+0, 0x1.ed3d17bdb1353p-3},    {0x1.113028faaebf6p+0, 0x1.0a2bd77e549cfp-4},
    {0x1.fae3791cc1378p-1, -0x1.48c68d981b85bp-7},   {0x1.7a44dfcc031e6p-1, -0x1.35fbf3f782a3dp-2},
    {0x1.d55002d9cb56cp-1, -0x1.64947dae06042p-4},   {0x1.4dead020c8133p+0, 0x1.1017c8aae8a78p-2},
    {0x1.f4f9c695e3a4ap+82, 0x1.cc1359f615ad5p+5},   {0x1.1257ef596fb64p+378, 0x1.06142eb62ead4p+8},
    {0x1.f632bf9797f0cp-678, -0x1.d547ac2cc4454p+8}, {0x1.62a76bc5fc5dp+632, 0x1.b6651da02ef6ap+8},
    {0x1.b1beb522f2e0cp+65, 0x1.6ca79eddfbd68p+5},   {0x1.587d17fdbd369p-928, -0x1.4178cb2843b47p+9},
    {0x1.8cf95041a94dp+869, 0x1.2d644cc61574ep+9},   {0x1.07f7b43bedd38p+331, 0x1.caecbb314d7a9p+7},
    {0x1.a9e647c6e6ccp+458, 0x1.3df86e691bd7dp+8},   {0x1.047de25a9638cp-690, -0x1.de4110b044df3p+8},
    {0x1.378827b9a1fc1p+281, 0x1.85f0fd3790f9ap+7},  {0x1.fae2199f7b1ecp+538, 0x1.7598a63827003p+8}};

TEST(ElementaryHardCases, LogRoundsRight)
{
    expect_values(panoval::log, kLog);
}

constexpr PairCase kPow[] = {{0x1.61eec03e7134bp+0, -0x1.2c82f2963bb9p-3, 0x1.e83bb329998e3p-1},
                             {0x1.c9e71adf9a761p+0, 0x1.348f8275594ap-5, 0x1.05ab350849677p+0},
                             {0x1.7697a24a5b8e6p+0, -0x1.642581906b94p-4, 0x1.ef54bc836bb55p-1},
                             {0x1.e4aff7b8ba914p+0, -0x1.2143f03c9d218p-2, 0x1.ab85b5a5dedffp-1},
                             {0x1.99226b2e8062p+0, 0x1.7558f696ac92cp-1, 0x1.6859443563171p+0},
                             {0x1.75da3385809eap+0, -0x1.9a12a347a8b6p-5, 0x1.f662cbd6d2ac3p-1},
                             {0x1.3881ecc18a114p+0, 0x1.82f02e89278a8p-1, 0x1.29a5cb41e4a51p+0},
                             {0x1.cd85f31393021p+0, 0x1.c2962eb303c0ap-1, 0x1.ae0615ef7c5efp+0},
                             {0x1.114dc9628c4a2p+0, -0x1.61d7e6e166c5p-4, 0x1.fd1d7d115dbe8p-1},
                             {0x1.f2125cfe74adep-1, 0x1.87878ef541ad4p-1, 0x1.f5508293e427dp-1},
                             {0x1.ee36edd74fceap+0, -0x1.92348d50a90aap-1, 0x1.3163f4cdd3e19p-1},
                             {0x1.8c5ef85db770bp+0, 0x1.5d82f510cdd5cp-1, 0x1.5905b8f1e819p+0},
                             {0x1.358edad5de444p-1, 0x1.fc08b46c3bf58p-2, 0x1.8ee3a8f6183c5p-1},
                             {0x1.8e6f2ee709acdp+0, 0x1.c7012eac7be94p-1, 0x1.7b4a0835c2e7p+0},
                             {0x1.9b55fedfe1df9p+0, -0x1.76a277d1be426p-1, 0x1.69e26266d6e91p-1},
                             {0x1.5752e4c0a1e8ap+0, 0x1.52ad378dd6d9cp-1, 0x1.36da4586ae25p+0},
                             {0x1.029ea73d07019p+6, -0x1.0b15b81a597bp+1, 0x1.5da53be2c8411p-13},
                             {0x1.2f549a8a3b23p+5, 0x1.165c39fc383ecp+3, 0x1.8a331d54dac25p+45},
                             {0x1.957129e110267p+5, 0x1.080f32974951cp+3, 0x1.a98ae665a0346p+46},
                             {0x1.0043e2e71da9cp+6, -0x1.360ec16ec329cp+3, 0x1.cd59c9bbb2283p-59},
                             {0x1.1641655ce0528p+6, 0x1.06380bef0537ep+4, 0x1.3bda06c7c8604p+100},
                             {0x1.982a2d94dadaep+3, -0x1.4d26d312d398ap+3, 0x1.b1a3e83b59774p-39},
                             {0x1.660ee6350ebd7p+6, 0x1.223be1c4b3c4ap+4, 0x1.88f379feaf424p+117},
                             {0x1.ab363272e1fcp+5, -0x1.ed98c80c7c6b7p+3, 0x1.64ec542d115aap-89},
                             {0x1.5a9725261af55p+4, 0x1.b754a57d220a8p+3, 0x1.e36cbee6e244fp+60},
                             {0x1.0af12bc47370ap+5, -0x1.b5bd06dca3602p+3, 0x1.b6c9b255c3955p-70},
                             {0x1.6a0b170d98468p+6, -0x1.4473ee015af48p+2, 0x1.0899541d06bfp-33},
                             {0x1.545ca8b8f7e21p+6, -0x1.dbacb427e4242p+3, 0x1.a0a43a3b22e1cp-96},
                             {0x1.805c0583c16edp+6, 0x1.ea389da78577p+2, 0x1.5d84043a7974ap+50},
                             {0x1.bdb77a3b972d8p+5, 0x1.db44cd5d94308p+1, 0x1.73124d9a3f95ep+21},
                             {0x1.0bc18bd7d0513p+5, 0x1.3b0e00be4a44p+3, 0x1.d24692ed880ccp+49},
                             {0x1.4be4be4afe85fp+5, -0x1.02f2ad1375d48p+4, 0x1.02f2e22793da4p-87},
                             {0x1.3e7465f4f8f4bp+6, -0x1.bc3de3438f8e2p+6, 0x1.945e74590ca1fp-702},
                             {0x1.0fb35e9622eb9p+5, -0x1.62040c53a9484p+6, 0x1.d7249bb6d42fap-451},
                             {0x1.fb1ca63880e1ap+5, 0x1.112a4a474bf04p+7, 0x1.8575d7937db62p+817},
                             {0x1.0c4af9f642572p+6, -0x1.5f1fe46033492p+6, 0x1.4ba10633c186dp-533},
                             {0x1.7ba2f1a9d9e1ap+4, -0x1.fbfd110b75206p+6, 0x1.c2ef556f130f1p-581},
                             {0x1.4f0153c7d9622p+6, 0x1.879f55e1af2cp+6, 0x1.57aa299dc2aedp+625},
                             {0x1.403759328d918p+6, 0x1.1624c5c34d63p+7, 0x1.437ce4cec2f32p+879},
                             {0x1.24bd2723d92e4p+6, 0x1.8bbf03d1fddfep+6, 0x1.b1b1bd6730663p+612},
                             {0x1.8c5216e598f92p+5, -0x1.f8828e523213ap+6, 0x1.c900bd5f60069p-711},
                             {0x1.160b5688e774dp+6, 0x1.25d67c2a22ec8p+5, 0x1.b02e19b3b7c39p+224},
                             {0x1.c0bffe74b91d4p+5, 0x1.c38fbbac1f3dp+4, 0x1.f451fcc4e6594p+163},
                             {0x1.564347b9c3f2dp+4, 0x1.47d4589accc52p+6, 0x1.1f4befa3d498ep+362},
                             {0x1.23eb0408c44cp+5, -0x1.e96f57cb3706ep+6, 0x1.053c0a2a52bf5p-635},
                             {0x1.5e8fb5fe952cdp+6, -0x1.e4cd789fa14c8p+6, 0x1.c6b1f2ece027ep-783},
                             {0x1.408487b87c6b2p+4, -0x1.170cf258d9ce2p+7, 0x1.937b1fd3ca7adp-604},
                             {0x1.7e82dcd831c8dp+5, -0x1.1ecbc4183d6b8p+4, 0x1.fcf648e100663p-101}};

TEST(ElementaryHardCases, PowRoundsRight)
{
    expect_values(panoval::pow, kPow);
}

constexpr Case kSine[] = {
    {0x1.886d795d7571ep-9, 0x1.886d52f1424c9p-9},     {0x1.906f25506b7e8p-11, 0x1.906f22c3418a1p-11},
    {0x1.dd3a1d05462d4p-9, 0x1.dd39d7eb72f19p-9},     {-0x1.6b27d17ac9d88p-9, -0x1.6b27b3079977bp-9},
    {0x1.fa38cba3d59cp-14, 0x1.fa38cb8f37191p-14},    {-0x1.6b82db8e472cp-12, -0x1.6b82db141eb67p-12},
    {-0x1.af3022e4d1dp-16, -0x1.af3022e405ef6p-16},   {0x1.d3628ffd170acp-9, 0x1.d3624f1350d69p-9},
    {0x1.91dfa8944ffp-12, 0x1.91dfa7ef4100ep-12},     {0x1.f341fb6048f28p-11, 0x1.f341f66e5fb35p-11},
    {-0x1.bb7793d46e068p-10, -0x1.bb7785f7b3269p-10}, {-0x1.e72be70aa9038p-9, -0x1.e72b9d87c41f3p-9},
    {-0x1.0dcceeb387c28p-10, -0x1.0dcceb9466a1ap-10}, {0x1.9c81d5577c048p-9, 0x1.9c81a8b6d497cp-9},
    {-0x1.d6f725bcd46fcp-9, -0x1.d6f6e35238786p-9},   {0x1.a1bc08a926d4p-11, 0x1.a1bc05c39ea7fp-11},
    {-0x1.f003172c833bcp+0, -0x1.ddf35e168cf7bp-1},   {0x1.094c79dbcf15ap+2, -0x1.afda901893878p-1},
    {-0x1.44e1a31c63e7p+0, -0x1.e8debac7efaa6p-1},    {0x1.37fdb5309b968p+2, -0x1.f941db776b3cfp-1},
    {-0x1.dbe8d267de18p+0, -0x1.eae1455441c61p-1},    {0x1.60c4ee031d2bcp+2, -0x1.64d976935b767p-1},
    {-0x1.2e6935191395cp+0, -0x1.d9a668529e40ap-1},   {-0x1.c92a0af87ac38p-1, -0x1.8ecb12af43fd7p-1},
    {0x1.43dbc5b8a22b8p+2, -0x1.e15393f67f8f4p-1},    {-0x1.ea9804d7ac35cp+0, -0x1.e1baa73b69585p-1},
    {0x1.e7bbc56e19128p+0, 0x1.e3a30a3773939p-1},     {0x1.f5c48938a39f8p+1, -0x1.6785589d8ee3ep-1},
    {0x1.f63d08716b478p+0, 0x1.d9582ae5ea366p-1},     {-0x1.58370a25275b4p+2, 0x1.929839b58019dp-1},
    {0x1.0f72814b2244p+2, -0x1.c83eb94ddb756p-1},     {0x1.829b8a68cb88p+2, -0x1.ebabce06d987bp-3},
    {0x1.5b79ed3fa6a1cp+2, -0x1.81f5bb8073c73p-1},    {0x1.852a9f3863aap-1, 0x1.60c2f030e7adap-1},
    {-0x1.264cae91a8948p+1, -0x1.7e1195b875c7p-1},    {0x1.14ecda73b4b18p+2, -0x1.da7004963afc6p-1},
    {-0x1.22114347b2d48p+1, -0x1.89207d575324cp-1},   {-0x1.da6eeace8ff08p-1, -0x1.9965104c85ab5p-1},
    {-0x1.180a5f593bebp+0, -0x1.c6dffd642393fp-1},    {0x1.24f5266803dd2p+2, -0x1.fb58b87cdcf42p-1},
    {-0x1.bd778dead7e4cp+12, -0x1.6fd9c17967964p-1},  {0x1.28b6ed72fccfap+13, 0x1.a731002015469p-1},
    {0x1.88b98de5e1678p+12, 0x1.99e63ece468dbp-2},    {0x1.d5d0ae1b023c8p+12, 0x1.6b3cb0d94e393p-1},
    {-0x1.cd7af6a316248p+10, 0x1.f1da779a6535p-1},    {0x1.383b17272766ap+13, 0x1.cd38fb38a33fcp-1},
    {0x1.09aacc826c2ep+13, 0x1.97269bf4fe6cep-3},     {-0x1.183d24a1b8fbcp+13, -0x1.ffb72577ab9b6p-1}};

TEST(ElementaryHardCases, SineRoundsRight)
{
    expect_values(panoval::sin, kSine);
}

constexpr Case kCosine[] = {
    {0x1.a8b8e78b285b4p-9, 0x1.ffff4fd6c8f76p-1},    {0x1.bbe8601861466p-9, 0x1.ffff3f90882d5p-1},
    {0x1.dec4d29b0975cp-10, 0x1.ffffc809c7681p-1},   {0x1.3a1969059658p-11, 0x1.fffff9fa76a26p-1},
    {0x1.6d88c4b33dee4p-9, 0x1.ffff7d84330cbp-1},    {0x1.12678e8ada608p-9, 0x1.ffffb6778c014p-1},
    {-0x1.a90f9a360d532p-9, 0x1.ffff4f8ed6639p-1},   {-0x1.d86fc8b8a60ep-10, 0x1.ffffc9823aa7fp-1},
    {0x1.3fe9112f318cp-10, 0x1.ffffe7039563cp-1},    {-0x1.bd5054e539686p-9, 0x1.ffff3e57f41ebp-1},
    {-0x1.18b9f5cdef5e4p-9, 0x1.ffffb30a2dbbbp-1},   {-0x1.30710c97d0458p-11, 0x1.fffffa57cd436p-1},
    {-0x1.dca3e70646086p-9, 0x1.ffff222395021p-1},   {-0x1.024d358985cbp-11, 0x1.fffffbed8124ap-1},
    {-0x1.94f19fc8524e8p-9, 0x1.ffff5fdd27415p-1},   {0x1.7590806aefc5ep-9, 0x1.ffff77b86c199p-1},
    {0x1.739168c1cb88cp+2, 0x1.c6bf0d45b6b9cp-1},    {0x1.7b07c6b0132dp+0, 0x1.70feac0db4df4p-4},
    {0x1.0e8c81fe65ef8p+2, -0x1.dd7459807fc52p-2},   {-0x1.10df9b584d06ap+2, -0x1.bc3e5b2ee6295p-2},
    {-0x1.39e9608e673a4p+2, 0x1.87c519f277667p-3},   {0x1.bbc3f1aaab27p+0, -0x1.4baa4e3609ce2p-3},
    {-0x1.430decc5e1348p+2, 0x1.50fc06cac4e93p-2},   {-0x1.9038c668f1db3p+2, 0x1.ffc61e1ac1ca7p-1},
    {-0x1.1044a72c1d454p+2, -0x1.c4f30923d4157p-2},  {-0x1.45e959696489fp+2, 0x1.7bcd59300c057p-2},
    {0x1.cca16073de948p+1, -0x1.cb70adb811ec3p-1},   {-0x1.7639ac4c3247dp+2, 0x1.d01eaafb5f37p-1},
    {0x1.b940930ba5714p+2, 0x1.a3411b857b973p-1},    {-0x1.6adea35cd0fb8p-1, 0x1.84b47233b8c1ep-1},
    {-0x1.09ee2f22e9514p+2, -0x1.0ec35adc395bp-1},   {-0x1.0832cae94804p-3, 0x1.fbbedfcae0cd2p-1},
    {-0x1.8d1d1de0a3424p+2, 0x1.fe6e95752eb51p-1},   {-0x1.4daf046a4e6p-4, 0x1.fe4d4cc7d0c27p-1},
    {-0x1.6061389f9a8p+1, -0x1.d9d20cd0af0ep-1},     {-0x1.122918bdd750dp+2, -0x1.a999c94c30a8ap-2},
    {-0x1.60b5bcc04b1d4p+0, 0x1.88dc84fa8c10cp-3},   {-0x1.62deb94f202bp+0, 0x1.77e3415d06ea2p-3},
    {-0x1.b7d0c975451a6p+1, -0x1.e9f6484ae0443p-1},  {-0x1.7a2711a9dec92p+1, -0x1.f70c3a2cf8c62p-1},
    {-0x1.38774b858bc48p+13, -0x1.6cdf49e33e6edp-1}, {0x1.91a365deab82p+9, 0x1.20f010b1101efp-1},
    {-0x1.0f86bb1f14977p+13, 0x1.634638a8f25c7p-1},  {-0x1.aa5f88a349acp+12, 0x1.3c170e4aeab6p-9},
    {0x1.3f6d8270f9c48p+13, 0x1.fa219ee61d4f7p-2},   {0x1.5acbf215e9d72p+13, 0x1.74611e0677124p-3},
    {0x1.330c19a998a4p+10, -0x1.f84c833f0a054p-1},   {-0x1.300466d22badfp+12, 0x1.d9e14a5d71845p-2}};

TEST(ElementaryHardCases, CosineRoundsRight)
{
    expect_values(panoval::cos, kCosine);
}

constexpr Case kArctangent[] = {
    {0x1.a32eda04f962cp-10, 0x1.a32ec29acd7fbp-10},   {0x1.8ed539ddce812p-9, 0x1.8ed4e93269e55p-9},
    {-0x1.6c2b353e7a95ap-9, -0x1.6c2af7d54e974p-9},   {0x1.733ed02112cacp-10, 0x1.733ebfdd29b24p-10},
    {0x1.fdc7959815372p-9, 0x1.fdc6ed23c3045p-9},     {0x1.567248a642212p-9, 0x1.56721595defdap-9},
    {-0x1.b5fff4fe8356p-9, -0x1.b5ff8a25f84e5p-9},    {0x1.43403334c8cd6p-9, 0x1.43400841c422dp-9},
    {0x1.a6ff5b04c9e38p-11, 0x1.a6ff5500f620bp-11},   {0x1.0122d27b651dp-11, 0x1.0122d1217f558p-11},
    {-0x1.51be92b144c54p-10, -0x1.51be8671f0e32p-10}, {0x1.55fc33af27a1p-11, 0x1.55fc30816cabap-11},
    {-0x1.dfa652059f4dcp-10, -0x1.dfa62ef154b7fp-10}, {-0x1.1f04b3eaf8fecp-10, -0x1.1f04ac66c8cafp-10},
    {0x1.bc03230cf1ee2p-9, 0x1.bc02b3be783bcp-9},     {-0x1.dde3e1770f33p-11, -0x1.dde3d8ca9992bp-11},
    {-0x1.bd3be0156ad28p-3, -0x1.b6697af0adb5bp-3},   {0x1.1e55a64d45acp-3, 0x1.1c7d8e8d8fe82p-3},
    {0x1.77dbbb3dcd5ecp-2, 0x1.683983f0e9001p-2},     {0x1.9669c7f06923p-3, 0x1.9133729e3c573p-3},
    {0x1.d6c3b66ab6978p-3, 0x1.ceb9f5018d889p-3},     {-0x1.9893ad0f6661p-2, -0x1.84c196e411f17p-2},
    {-0x1.e107bd468a708p-3, -0x1.d877585a60f97p-3},   {-0x1.1f8902507a48p-5, -0x1.1f6acd9e43097p-5},
    {0x1.4bd75521a9d04p-1, 0x1.266df1d27528p-1},      {0x1.8e5e71864685p-2, 0x1.7beb8ba9d79f8p-2},
    {-0x1.fd12411786ap-2, -0x1.d86df4d0c2d72p-2},     {-0x1.565433eec00fep-1, -0x1.2dbef791bcd8bp-1},
    {0x1.8b8d17f4fcadp-2, 0x1.79786facdc332p-2},      {-0x1.e13ba514aac1cp-1, -0x1.8244d6406c498p-1},
    {-0x1.bae6c5f5515d4p-1, -0x1.6d23957eae1c8p-1},   {0x1.298f757d8e078p-2, 0x1.2195d7cec7f0fp-2},
    {-0x1.2be176831c6d1p+5, -0x1.8b4bcd01ff2c8p+0},   {0x1.a4bf087e871ecp+4, 0x1.8864ba0ba6655p+0},
    {-0x1.f7cf8862396cp+2, -0x1.71c6e6d2b1e49p+0},    {0x1.a18971ceccdbcp+4, 0x1.8851994ed2de8p+0},
    {0x1.280e46bd410b8p+2, 0x1.5b9f215e6ca2bp+0},     {0x1.4fca4c15545fp+5, 0x1.8c06a5ca72a0bp+0},
    {-0x1.22888800d2187p+5, -0x1.8b1397ce3fd34p+0},   {-0x1.183156beeaff1p+5, -0x1.8ad10c0f44806p+0},
    {0x1.1b83242994444p+5, 0x1.8ae6f03474af7p+0},     {0x1.e7028d981cb88p+3, 0x1.8153b5e3b63a2p+0},
    {0x1.9511241261becp+4, 0x1.8804678f23db3p+0},     {0x1.a649e4c78c5e4p+4, 0x1.886dd10110bbep+0},
    {-0x1.8646c99e22461p+4, -0x1.87a275d690bd5p+0},   {-0x1.779a68cbdd7edp+4, -0x1.8739aeb5daafcp+0},
    {0x1.cd50fc245b8cp+3, 0x1.8064f61fbaacdp+0},      {0x1.11ee9aacd37cep+5, 0x1.8aa65141b9e38p+0}};

TEST(ElementaryHardCases, ArctangentRoundsRight)
{
    expect_values(panoval::atan, kArctangent);
}

constexpr PairCase kArctangentOfTwo[] = {{0x1.9ec1b805e5a24p-2, -0x1.552fd500bc06p-5, 0x1.ac5b00c96a02fp+0},
                                         {0x1.0be8cc047d578p-1, -0x1.a2aea543cf6bp-3, 0x1.f17921408075p+0},
                                         {0x1.f5444ac4fa1ap-4, 0x1.261539ed745ep-5, 0x1.4913f924b0bbep+0},
                                         {0x1.584a450135122p-1, -0x1.c53faa38bd8cp-5, 0x1.a723dce26fa98p+0},
                                         {0x1.b8dddd4c9a9ccp-2, 0x1.b2b0bbf5149ep-2, 0x1.95bc4a8c54daap-1},
                                         {-0x1.b1568d9d03958p-2, 0x1.37e1b0fa47694p-1, -0x1.36df1215ada63p-1},
                                         {0x1.534c3eca570e8p-3, -0x1.b6f6aa30d9168p-2, 0x1.62eb12fea0492p+1},
                                         {0x1.d2cb8d233b06p-5, 0x1.be044c5551d5cp-1, 0x1.0b8b83edd2fd6p-4},
                                         {0x1.10c38468709d8p-3, 0x1.955e3ad3b9432p-1, 0x1.55518bf6efb5p-3},
                                         {-0x1.fc330f3ba5b04p-1, 0x1.70b5e1e5d3634p-1, -0x1.e2e3f0b5a6e84p-1},
                                         {-0x1.71128399f3dcp-2, -0x1.7ede70c1aeb7ap-1, -0x1.58a29cfaebfb2p+1},
                                         {-0x1.d7c33b6706918p-1, 0x1.2a0df1e3227p-5, -0x1.88053e6622febp+0},
                                         {-0x1.1e8154bfd523p-2, -0x1.57b38bed9f5dap-1, -0x1.5f93a4854fdbep+1},
                                         {0x1.3b031be4157p-2, -0x1.3e4356ccf3ce8p-2, 0x1.2e3ffe3c44c9p+1},
                                         {-0x1.45f8b382437ap-2, 0x1.540a311e0cef8p-2, -0x1.874f740432a1cp-1},
                                         {0x1.cb73ef61167bp-4, 0x1.49b1511c2d25p-4, 0x1.e590e5ea140b9p-1},
                                         {-0x1.2a225d462e216p-1, 0x1.eccfe73b4ac44p-2, -0x1.c29d89bf0c339p-1},
                                         {0x1.1f9d827478bep-5, 0x1.6023b1a195b9ep-1, 0x1.a1d237b33955ap-5},
                                         {0x1.6cc13f2bd9db4p-2, 0x1.67a9cbf3c4984p-2, 0x1.95b8f00ce0ad4p-1},
                                         {0x1.c97b6273b56dp-2, 0x1.d75e4e4050e16p-1, 0x1.cea3318afc912p-2},
                                         {0x1.41f61c79b81p-7, -0x1.7aa23ca03f50cp-1, 0x1.906c5e2690c6p+1},
                                         {0x1.6b9ccc0ed6958p-1, 0x1.73ded5c89dc0ep-1, 0x1.8c6019d44f712p-1},
                                         {-0x1.81e70cf840a88p-3, 0x1.ea0a9b2330636p-1, -0x1.8e1a7ca90eb3cp-3},
                                         {-0x1.9a0c96b3c421p-2, -0x1.3bf983f5c9ceep-1, -0x1.48733a110eb91p+1},
                                         {-0x1.c3ac5d283a348p-12, -0x1.ce0879041b41cp-2, -0x1.92006cf3a713dp+1},
                                         {-0x1.d23a10c077958p-14, -0x1.e1bfd4ff1271ap-1, -0x1.921bd642d8fc4p+1},
                                         {0x1.af4fae8796492p-11, 0x1.7199f54225008p-2, 0x1.2abdf8f325651p-9},
                                         {-0x1.36c72d7398398p-11, 0x1.381a57dde6ca4p-2, -0x1.fdd3707aa9665p-10},
                                         {-0x1.959d2fa5fefc8p-13, -0x1.7debd6e046108p-1, -0x1.92173637b02f6p+1},
                                         {-0x1.b9d3eaaadd4b4p-12, -0x1.1114e4c93a00ep-1, -0x1.9205d236bdf76p+1},
                                         {-0x1.2a25c9fe5981p-13, -0x1.07b6d68afd9ep-5, -0x1.918efef5cf2c4p+1},
                                         {0x1.37dee5efe38fp-13, -0x1.6adfccf9e77a2p-1, 0x1.9218d51f30cdp+1},
                                         {0x1.4a85bae1e852p-3, -0x1.bd51bda29f6dep-12, 0x1.92cc2a2288b86p+0},
                                         {0x1.5c745ad6bb004p-2, -0x1.e68b7c16b1b9p-11, 0x1.92d26ee84b61ep+0},
                                         {-0x1.dbd9763994334p-1, -0x1.7afe172d705fp-11, -0x1.9252ae60bd5dcp+0},
                                         {-0x1.8fb3820702bc2p-1, 0x1.af8e5629f5fd8p-13, -0x1.920e6ed46acafp+0},
                                         {-0x1.4944d4dd5b9f4p-1, 0x1.4784f8a17c57ap-11, -0x1.91e00c5287f53p+0},
                                         {0x1.cb03e2f60bb6cp-1, 0x1.1a8dd4bb2ae1cp-12, 0x1.920c028d582d5p+0},
                                         {-0x1.b222158012ee4p-1, 0x1.536ce909a809ap-11, -0x1.91edab7f6fc55p+0},
                                         {-0x1.88767c4f9796ep-1, -0x1.3b8f316c0b8ap-12, -0x1.92397009225b4p+0},
                                         {0x1.5e45726475ef2p-716, -0x1.98b252431ea8ap-716, 0x1.376d4b5b192cbp+1},
                                         {0x1.cec9114c0faacp-680, -0x1.5930f6247225p-681, 0x1.ed8236c70a7b2p+0},
                                         {0x1.6d0d536e8f638p-487, -0x1.bf5722d5ad6dap-487, 0x1.3a839d2734db5p+1},
                                         {0x1.ada6e99731c14p-525, -0x1.68d32f694b9ccp-526, 0x1.f7e54abb91e02p+0},
                                         {-0x1.d19d818a5dbcp-640, 0x1.43ba8c114d684p-635, -0x1.6ff446b4dd4dfp-5},
                                         {-0x1.d4d251d39022ap-558, 0x1.a37a9d9c0a24p-559, -0x1.266eb45ec5d65p+0},
                                         {-0x1.c36c84f3a0beap-476, 0x1.ed10b49e8000ap-476, -0x1.7b90a5855405ep-1},
                                         {-0x1.fdd6674ddb7c8p-500, -0x1.6a7c5314ac208p-499, -0x1.43ac07e5be9ep+1},
                                         {0x1.a2fe0f25ca98ap-551, 0x1.8637f7bd17f24p-552, 0x1.228ef058c30ffp+0},
                                         {0x1.06d3545d0b4p-812, -0x1.8256b7146be48p-810, 0x1.7c8f86a57c176p+1},
                                         {0x1.557fa42cb0e8p-942, -0x1.629c60692d94p-941, 0x1.58af22b6166fbp+1},
                                         {0x1.6e8d37b66eeep-777, -0x1.b2ffc4b2eed5p-777, 0x1.387f3175e8539p+1},
                                         {0x1.764f8e39af984p-672, -0x1.9a839038b6c8p-676, 0x1.a3a4db0a52f29p+0},
                                         {-0x1.5f79de83d1d4p-937, 0x1.e4b68c939d36cp-932, -0x1.7332e8e89a2e5p-6},
                                         {0x1.b86072b0fe16cp-755, -0x1.957a6cc73a44p-760, 0x1.997ce3de83265p+0},
                                         {-0x1.daf080a1dd3d8p-893, -0x1.7dbf6bfc9e9c4p-893, -0x1.1fb930a7f9e48p+1},
                                         {0x1.003a9ec0eb9cp+871, -0x1.b850a92c422fp+869, 0x1.fa003a4c671c5p+0},
                                         {0x1.f0c437c082796p+807, 0x1.730bffd2a671p+806, 0x1.369fb8c3c14eap+0},
                                         {-0x1.e45c5ad6b0cb2p+596, 0x1.e2dd5f047bae4p+596, -0x1.92ea70a3b183cp-1},
                                         {0x1.477a492ae714ap+806, -0x1.8f41d82fc3054p+806, 0x1.3a31cf3d7ce24p+1},
                                         {-0x1.0b096187c40e8p+625, 0x1.9c9b14613d908p+626, -0x1.40796866ae56fp-2},
                                         {0x1.c5527eb9d531p+773, 0x1.df46f3a36434p+774, 0x1.c45ab130cab23p-2},
                                         {-0x1.edd9c433eb63cp+894, -0x1.061897625f87p+892, -0x1.b3e485669510ap+0},
                                         {0x1.014ec6ea07358p+588, 0x1.bb7b67e5efaf4p+589, 0x1.21201da003b75p-2},
                                         {0x1.86b914913809ep+645, 0x1.64ab53379beacp+645, 0x1.a96faaac21a93p-1},
                                         {0x1.3c779ac481808p-101, -0x1.a64bfeae315ap-101, 0x1.3fce270bbe11ap+1},
                                         {-0x1.7ce64dfcbdfe8p+282, -0x1.171f3c333ef8p+281, -0x1.ec087e75e70f7p+0},
                                         {0x1.afbbde5fcbf8cp-261, 0x1.6deaaaf7335fp-261, 0x1.bc46837ea824fp-1},
                                         {-0x1.96b57f62dd506p-359, -0x1.1d47bc3ec4eap-360, -0x1.e879ee9fe7878p+0},
                                         {-0x1.94e0557c412d8p-44, 0x1.250af004d028p-50, -0x1.8f3a95e4f0a58p+0},
                                         {0x1.f3e92268e48cp-99, 0x1.a011bfe8aa35p-97, 0x1.2ace50c516626p-2},
                                         {-0x1.fc907e8f76afcp-290, 0x1.9387d2a42cep-290, -0x1.ccd3561aa3c91p-1}};

TEST(ElementaryHardCases, ArctangentOfTwoRoundsRight)
{
    expect_values(panoval::atan2, kArctangentOfTwo);
}

} // namespace

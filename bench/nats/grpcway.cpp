// SPDX-License-Identifier: Apache-2.0
// gRPC, without a broker in between. Bytes are passed as they are: no description is compiled.
#include "way.h"

#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/client_unary_call.h>
#include <grpcpp/impl/codegen/method_handler.h>

namespace {

const char *const Method = "/z.Echo/Call";

class Echo : public grpc::Service
{
public:
    Echo()
    {
        AddMethod(new grpc::internal::RpcServiceMethod(
            Method, grpc::internal::RpcMethod::NORMAL_RPC,
            new grpc::internal::RpcMethodHandler<Echo, grpc::ByteBuffer, grpc::ByteBuffer>(
                [](Echo *, grpc::ServerContext *, const grpc::ByteBuffer *in, grpc::ByteBuffer *out) {
                    *out = *in;
                    return grpc::Status::OK;
                },
                this)));
    }
};

class GrpcWay : public Way
{
public:
    explicit GrpcWay(const QString &address) : m_address(address.toStdString()) {}

    void serve() override
    {
        grpc::ServerBuilder builder;
        builder.AddListeningPort(m_address, grpc::InsecureServerCredentials());
        builder.RegisterService(&m_echo);
        m_server = builder.BuildAndStart();
    }

    Call caller(const std::string &payload) override
    {
        std::shared_ptr<grpc::Channel> channel = grpc::CreateChannel(m_address, grpc::InsecureChannelCredentials());
        return [channel, slice = grpc::Slice(payload)] {
            const grpc::internal::RpcMethod method(Method, grpc::internal::RpcMethod::NORMAL_RPC, channel);
            const grpc::ByteBuffer in(&slice, 1);
            grpc::ByteBuffer out;
            grpc::ClientContext context;
            return grpc::internal::BlockingUnaryCall<grpc::ByteBuffer, grpc::ByteBuffer>(channel.get(), method,
                                                                                         &context, in, &out)
                .ok();
        };
    }

private:
    const std::string m_address;
    Echo m_echo;
    std::unique_ptr<grpc::Server> m_server;
};

} // namespace

std::unique_ptr<Way> grpcWay(const QString &address) { return std::make_unique<GrpcWay>(address); }

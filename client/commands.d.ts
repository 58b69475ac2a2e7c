// Made by generate_types.mjs from docs/commands.schema.json: do not edit.

/**
 * The id of the command that is answered; "" when it had none or was no command.
 *
 */
export type Id = string;
/**
 * The cmdId of the command, as it stood there.
 *
 */
export type CmdId = string;
/**
 * UTC.
 *
 */
export type Time = string;
/**
 * Of this contract: raised when a command or a reply changes so that an older client no longer works. GET /health tells it.
 *
 */
export type ApiVersion = 1;
/**
 * A number or its digits.
 *
 */
export type Port = number | string;
/**
 * Needed for the count and not looked at.
 *
 */
export type Unused = string | number | boolean | null;
/**
 * The reply, as plain text, to a POST without a text, or to a path that takes no commands.
 *
 */
export type InvalidCommand = "Invalid command";

/**
 * Every command: the parameters to send, the reply to exactly those, and the reply when it fails. A reply that is no JSON, such as an empty text, stands here as a text of the same characters. Texts that the operator stored stand in the replies without an id as they are: one with a quote or a backslash makes the reply no JSON.
 */
export interface Commands {
  /**
   * Where the service and its modules listen.
   */
  GetServerInfo: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: ServerInfo;
    failure: Failure;
  };
  /**
   * Stores a host name and ports, which are used after the next Reboot. Wrong types are answered {}.
   */
  SetServerInfo: {
    /**
     * @minItems 5
     * @maxItems 5
     */
    parameter: [string, number | string, number | string, number | string, number | string];
    reply: ServerInfo;
    failure: Failure | EmptyObject;
  };
  /**
   * Reads the stored ports again and listens on those.
   */
  Reboot: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: {
      id: Id;
      method: "Reboot";
      /**
       * @minItems 1
       * @maxItems 1
       */
      result: [true];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * The ports of the modules of a user. On this system no user has ports of their own: it fails.
   */
  GetPorts: {
    /**
     * @minItems 1
     * @maxItems 1
     *
     * Items: user key
     */
    parameter: [string];
    reply: {
      id: Id;
      method: "GetPorts";
      /**
       * @minItems 2
       * @maxItems 2
       */
      result: [
        string,
        {
          [k: string]: ModulePorts;
        }
      ];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * Nothing to do on this system. The parameters are not echoed; wrong types are answered {}.
   */
  CheckHVNPort: {
    /**
     * @minItems 3
     * @maxItems 3
     */
    parameter: [string, number | string, number | string];
    reply: {
      id: Id;
      method: "CheckHVNPort";
      /**
       * @minItems 1
       * @maxItems 1
       */
      result: [true];
      cmdId: CmdId;
    };
    failure: Failure | EmptyObject;
  };
  /**
   * Nothing to do on this system.
   */
  ChangePort: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: {
      id: Id;
      method: "ChangePort";
      /**
       * @minItems 1
       * @maxItems 1
       */
      result: [true];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * Nothing to do on this system.
   */
  AddFirewall: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: {
      id: Id;
      method: "AddFirewall";
      /**
       * @minItems 1
       * @maxItems 1
       */
      result: [false];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * Nothing to tell on this system: an empty list.
   */
  GetLocalIP: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: string[];
    failure: Failure;
  };
  /**
   * The module and the calling user.
   */
  VersionInfo: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: {
      id: Id;
      method: "VersionInfo";
      /**
       * @minItems 6
       * @maxItems 6
       */
      result: [string, string, string, "true" | "false", "32", string];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * The installed service version and the service's name.
   */
  QVVersion: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: {
      id: Id;
      method: "QVVersion";
      /**
       * @minItems 2
       * @maxItems 2
       */
      result: [string, string];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * The last day of the certificate of the secure port; [] when there is none that can be told.
   */
  GetCertExpiredDate: {
    /**
     * @maxItems 0
     */
    parameter: [];
    /**
     * @maxItems 1
     */
    reply: [] | [string];
    failure: Failure;
  };
  /**
   * The service's files.
   */
  GetBinaryFileInfo: {
    /**
     * @maxItems 0
     */
    parameter: [];
    reply: FileInfo[];
    failure: Failure;
  };
  /**
   * Stores the settings of looking for services on the network, and starts or stops it. The reply is an empty text.
   */
  SetmDNSQueryService: {
    /**
     * @minItems 6
     * @maxItems 6
     */
    parameter: [
      boolean,
      string,
      number | string,
      number | string,
      string | number | boolean | null,
      string | number | boolean | null
    ];
    reply: "";
    failure: Failure;
  };
  /**
   * The stored settings of looking for services; the switch alone while it is off.
   */
  GetmDNSQueryService: {
    /**
     * @maxItems 0
     */
    parameter: [];
    /**
     * @minItems 4
     * @maxItems 4
     */
    reply: [boolean, string, number, number];
    failure: Failure;
  };
  /**
   * Stores the settings of announcing this service on the network, and starts or stops it. The reply is an empty text.
   */
  SetmDNSService: {
    /**
     * @minItems 9
     * @maxItems 9
     */
    parameter: [boolean, string, string, boolean, boolean, boolean, number, boolean, string];
    reply: "";
    failure: Failure;
  };
  /**
   * The stored settings of announcing; [false,-1,"","",0,0,0] while it is off.
   */
  GetmDNSService: {
    /**
     * @maxItems 0
     */
    parameter: [];
    /**
     * @minItems 7
     * @maxItems 7
     */
    reply: [boolean, number, string, string, 0, 0, 0];
    failure: Failure;
  };
  /**
   * Unpacks the zip file that is the body of a POST. The parameters stand in its path: /LoadZipFromBytes?type=KIND&qvver=VERSION&
   */
  LoadZipFromBytes: {
    /**
     * @minItems 2
     * @maxItems 2
     */
    parameter: [number, string];
    reply: {
      id: Id;
      method: "LoadZipFromBytes";
      /**
       * @minItems 3
       * @maxItems 3
       */
      result: [number, string, true];
      cmdId: CmdId;
    };
    failure: Failure;
  };
  /**
   * Starts the update by the package Service_VERSION.zip that lies beside the program.
   */
  CheckUpdateFile: {
    /**
     * @minItems 1
     * @maxItems 1
     *
     * Items: version
     */
    parameter: [string];
    reply: {
      id: Id;
      method: "CheckUpdateFile";
      /**
       * @minItems 2
       * @maxItems 2
       */
      result: [string, true];
      cmdId: CmdId;
    };
    failure: Failure;
  };
}
/**
 */
export interface ServerInfo {
  /**
   * The stored host name.
   */
  Host: string;
  hvn: StoredPorts;
  qtp: StoredPorts1;
}
/**
 * The scanning module.
 */
export interface StoredPorts {
  port: string;
  sslPort: string;
}
/**
 * The manager, which answers these commands.
 */
export interface StoredPorts1 {
  port: string;
  sslPort: string;
}
/**
 * The reply to a command that failed. `result` holds the parameters, then false; beside -2201 true, which means nothing.
 *
 */
export interface Failure {
  id: Id;
  /**
   * As it was asked.
   */
  method: string;
  exception: -2200 | -2201 | -2202 | -2205 | -2373 | -2405 | -2406 | -2407 | -2408;
  /**
   * What is wrong.
   */
  description: string;
  /**
   * @minItems 1
   */
  result: [unknown, ...unknown[]];
  cmdId: CmdId;
}
/**
 */
export interface EmptyObject {}
/**
 */
export interface ModulePorts {
  port: number;
  sslPort: number;
}
/**
 */
export interface FileInfo {
  name: string;
  version: string;
  size: number;
  date: Time;
}
/**
 * What is sent, as the body of a POST to /qtp/ or as a WebSocket message.
 *
 */
export interface Command {
  /**
   * Name of a command.
   */
  method: string;
  parameter?: unknown[];
  /**
   * Echoed in the reply.
   */
  id?: string;
  /**
   * Echoed as the last member of the reply.
   */
  cmdId?: string;
  /**
   * Of the client library.
   */
  version?: string;
  [k: string]: unknown;
}
/**
 * As digits; "-1" where no port is stored.
 *
 */
export interface StoredPorts2 {
  port: string;
  sslPort: string;
}
/**
 * GET /health. Members may be added.
 *
 */
export interface Health {
  apiVersion: ApiVersion;
  /**
   * Of the service.
   */
  name: string;
  /**
   * Of the installation.
   */
  version: string;
  /**
   * Of the running program.
   */
  build: string;
  pid: number;
  started: Time;
  uptime_seconds: number;
  connections: number;
  modules: {
    alias: string;
    description: string;
    [k: string]: unknown;
  }[];
  /**
   * A command is running.
   */
  busy: boolean;
  ports: HealthPort[];
  /**
   * The one that is shown; null when there is none.
   */
  certificate: HealthCertificate | null;
  update: HealthUpdate;
  [k: string]: unknown;
}
/**
 */
export interface HealthPort {
  module: string;
  secure: boolean;
  requested: number;
  /**
   * 0 when it is not open.
   */
  actual: number;
  addresses: string[];
  /**
   * "listening", or why not.
   */
  state: string;
  [k: string]: unknown;
}
/**
 */
export interface HealthCertificate {
  subject: string;
  not_before: Time;
  not_after: Time;
  [k: string]: unknown;
}
/**
 * What became of the last update.
 *
 */
export interface HealthUpdate {
  state: "idle" | "running" | "done" | "refused" | "taken back";
  /**
   * Of the package; empty when unknown.
   */
  version: string;
  /**
   * Of the state; null while it is idle.
   */
  time: Time | null;
  /**
   * Why it was refused or taken back.
   */
  reason: string;
  /**
   * Whether packages must be signed, in a sentence.
   */
  packages: string;
  [k: string]: unknown;
}
/**
 * GET /services: what the last complete look at the networks found. Members may be added.
 *
 */
export interface Services {
  advertising: boolean;
  advertising_problem?: string;
  browsing: boolean;
  browsing_problem?: string;
  /**
   * Another machine answers under this service's name.
   */
  same_name?: {
    address: string;
    last_heard: Time;
    [k: string]: unknown;
  };
  services: FoundService[];
  [k: string]: unknown;
}
/**
 * What a service says of itself is not checked.
 *
 */
export interface FoundService {
  id?: string;
  name: string;
  kind?: string;
  ipv4?: string;
  ipv6?: string;
  modules?: string;
  os?: string;
  password_protected?: boolean;
  text_version?: string;
  url?: string;
  last_seen: Time;
  [k: string]: unknown;
}
